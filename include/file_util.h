/* file_util.h - file, directory, process and dynamic-loading helpers. */
#ifndef OVRMAIL_FILE_UTIL_H
#define OVRMAIL_FILE_UTIL_H

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "mail_types.h"

MAIL_BEGIN_DECLS

MAIL_API int32_t GetErrorCode(void) MAIL_NOEXCEPT;

MAIL_API int32_t FileOpen(const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t FileOpenRead(const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t FileOpen2(const char* path, int32_t mode) MAIL_NOEXCEPT;
MAIL_API int32_t FileRead(int32_t fd, void* buffer, uint32_t length) MAIL_NOEXCEPT;
MAIL_API int32_t FileWrite(int32_t fd, const void* buffer, uint32_t length) MAIL_NOEXCEPT;
MAIL_API int32_t FileClose(int32_t fd) MAIL_NOEXCEPT;
MAIL_API int32_t FileDelete(const char* path) MAIL_NOEXCEPT;
MAIL_API off_t FileSeek(int32_t fd, off_t offset, int32_t origin) MAIL_NOEXCEPT;
MAIL_API int32_t FileSize(int32_t fd) MAIL_NOEXCEPT;
MAIL_API int32_t FileSize_Name(const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t FileStat(const char* path, struct stat* status) MAIL_NOEXCEPT;
MAIL_API int32_t FileBackUp(const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t FileCopy(const char* source_dir, const char* target_dir, const char* name,
                          const char* target_name) MAIL_NOEXCEPT;
MAIL_API int32_t RenameFile(const char* old_path, const char* new_path) MAIL_NOEXCEPT;

MAIL_API DIR* DirectryOpen(const char* path) MAIL_NOEXCEPT;
MAIL_API struct dirent* DirectryRead(DIR* stream, struct dirent* entry) MAIL_NOEXCEPT;
MAIL_API int32_t DirectryClose(DIR* stream) MAIL_NOEXCEPT;
MAIL_API int32_t DirectryMake(const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t ExecDelDir(const char* path, int32_t depth_limit) MAIL_NOEXCEPT;

MAIL_API int32_t CheckString_NotUpLow(const char* text1, const char* text2) MAIL_NOEXCEPT;
MAIL_API int32_t ExecCommand(const char* command) MAIL_NOEXCEPT;

MAIL_API void* DLLOpen(const char* file) MAIL_NOEXCEPT;
MAIL_API void* DLLGetProcAddress(void* handle, const char* symbol) MAIL_NOEXCEPT;
MAIL_API int32_t DLLClose(void* handle) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif
