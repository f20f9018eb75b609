/* file_util.h - file, directory, process and dynamic-loading helpers.
 *
 * Unless a comment says more, a function makes one system call, repeats it while a signal
 * interrupts it (EINTR), and returns its result: 0, a count or a descriptor, or -1 with errno.
 * A null path fails with EFAULT. Files are opened close-on-exec; modes are subject to the umask.
 * No function keeps state; all may be called from several threads, a directory stream from one at
 * a time. Each may block as long as the file system does. */
#ifndef OVRMAIL_FILE_UTIL_H
#define OVRMAIL_FILE_UTIL_H

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "mail_types.h"

MAIL_BEGIN_DECLS

/* GetErrorCode - errno of the calling thread. */
MAIL_API int32_t GetErrorCode(void) MAIL_NOEXCEPT;

/* FileOpen - open for reading and writing; a missing file is created with mode 0644.
 * FileOpenRead - open read only.
 * FileOpen2 - as FileOpen; mode 0 appends, any other mode empties the file; at most 10 attempts.
 * Return a descriptor that the caller closes, or -1. */
MAIL_API int32_t FileOpen(const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t FileOpenRead(const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t FileOpen2(const char* path, int32_t mode) MAIL_NOEXCEPT;

/* FileRead, FileWrite - read or write at most `length` bytes. Return the number of bytes moved,
 * which may be smaller (0 at the end of the file), or -1. */
MAIL_API int32_t FileRead(int32_t fd, void* buffer, uint32_t length) MAIL_NOEXCEPT;
MAIL_API int32_t FileWrite(int32_t fd, const void* buffer, uint32_t length) MAIL_NOEXCEPT;

/* FileClose - an interrupted close has closed, and counts as done. */
MAIL_API int32_t FileClose(int32_t fd) MAIL_NOEXCEPT;
MAIL_API int32_t FileDelete(const char* path) MAIL_NOEXCEPT;

/* FileSeek - origin is SEEK_SET, SEEK_CUR or SEEK_END. Returns the new offset. */
MAIL_API off_t FileSeek(int32_t fd, off_t offset, int32_t origin) MAIL_NOEXCEPT;

/* FileSize, FileSize_Name - size in bytes; INT32_MAX where it does not fit; or -1.
 * FileSize_Name returns -1, too, for anything but a regular file; symbolic links are followed. */
MAIL_API int32_t FileSize(int32_t fd) MAIL_NOEXCEPT;
MAIL_API int32_t FileSize_Name(const char* path) MAIL_NOEXCEPT;

/* FileStat - status of `path`, symbolic links followed, into the caller's record. */
MAIL_API int32_t FileStat(const char* path, struct stat* status) MAIL_NOEXCEPT;

/* FileBackUp - rename to the same name with ".bak" behind it; an older back-up is replaced. */
MAIL_API int32_t FileBackUp(const char* path) MAIL_NOEXCEPT;

/* FileCopy - copy a file from one directory into another, keeping a back-up of what it replaces.
 *   name         file name in `source_dir`
 *   target_name  file name in `target_dir`, null: the same as `name`
 * Makes `target_dir` (not its parents) where it is missing, see DirectryMake. The copy carries the
 * owner, permissions and times of the source as far as the process may set them; without the owner
 * it does not carry the set-user and set-group bits either.
 * Returns 0, also when the source does not exist: then nothing is made; -1 when anything fails;
 * the target may then hold a part, and the old one is found under its back-up name. A file copied
 * onto itself fails so, too. */
MAIL_API int32_t FileCopy(const char* source_dir, const char* target_dir, const char* name,
                          const char* target_name) MAIL_NOEXCEPT;

/* RenameFile - rename, and delete the old name whatever came of it: a failed rename loses the
 * file, and so does a rename onto itself. Returns the result of the rename, with its errno. */
MAIL_API int32_t RenameFile(const char* old_path, const char* new_path) MAIL_NOEXCEPT;

/* DirectryOpen - returns a stream that DirectryClose closes, or null.
 * DirectryRead - copies the next entry into `entry`. Returns `entry`, or null at the end or on an
 * error. */
MAIL_API DIR* DirectryOpen(const char* path) MAIL_NOEXCEPT;
MAIL_API struct dirent* DirectryRead(DIR* stream, struct dirent* entry) MAIL_NOEXCEPT;
MAIL_API int32_t DirectryClose(DIR* stream) MAIL_NOEXCEPT;

/* DirectryMake - make one directory, not its parents, with mode 0755, owner "root", group "sys".
 * Returns 0; 1 when it was made but could not be given to them; -1 when it could not be made,
 * because it exists, for example. */
MAIL_API int32_t DirectryMake(const char* path) MAIL_NOEXCEPT;

/* ExecDelDir - remove a directory with all it holds.
 *   depth_limit  levels to descend, `path` itself being the first
 * In every directory the files go first. Symbolic links to directories are FOLLOWED: what their
 * targets hold is deleted; the link itself is not a directory, so that the result is then -2.
 * Returns 0, also when `path` does not exist; -1 when a directory below the limit is not empty
 * (or the limit is 0 or less: nothing is touched); -2 when anything cannot be read or removed. The
 * first failure ends the work. */
MAIL_API int32_t ExecDelDir(const char* path, int32_t depth_limit) MAIL_NOEXCEPT;

/* CheckString_NotUpLow - compare two texts, letters folded to lower case by the current locale.
 * Returns 0 equal, -1 different or null. (-2, no memory, is reserved: none is needed.) */
MAIL_API int32_t CheckString_NotUpLow(const char* text1, const char* text2) MAIL_NOEXCEPT;

/* ExecCommand - run a command line through the shell and wait for its end, without limit. As with
 * system(), SIGINT and SIGQUIT are ignored and SIGCHLD is blocked meanwhile.
 * Returns 0 whatever the command itself returned, even when the shell did not find it; -1 when
 * the shell could not be started. */
MAIL_API int32_t ExecCommand(const char* command) MAIL_NOEXCEPT;

/* DLLOpen - load a shared library with lazy binding; null file: the program itself.
 * DLLGetProcAddress - address of a symbol; null handle: searched in all that is loaded.
 * DLLClose - unload; -1 for a null handle, non-zero on failure.
 * What failed is found with dlerror(). */
MAIL_API void* DLLOpen(const char* file) MAIL_NOEXCEPT;
MAIL_API void* DLLGetProcAddress(void* handle, const char* symbol) MAIL_NOEXCEPT;
MAIL_API int32_t DLLClose(void* handle) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif
