/* file_util.h - file, directory, process and dynamic-loading helpers.
 *
 * Unless a comment says more, a function makes one system call, repeats it where a signal can
 * interrupt it (EINTR), and returns its result: 0, a count or a descriptor, or -1 with errno.
 * A null path fails with EFAULT. Files are opened close-on-exec; modes are subject to the umask.
 * No function keeps state; all may be called from several threads, a directory stream from one at
 * a time. Each may block as long as the file system does. Paths and texts end with NUL; all memory
 * belongs to the caller. */
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
 * FileOpen2 - as FileOpen; gives up after 10 attempts that signals interrupt.
 *   path  the file
 *   mode  0: every write goes to the end; any other: the file is emptied
 * Return a descriptor that the caller closes, or -1. */
MAIL_API int32_t FileOpen(const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t FileOpenRead(const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t FileOpen2(const char* path, int32_t mode) MAIL_NOEXCEPT;

/* FileRead, FileWrite - read or write at the position of the file.
 *   fd      open descriptor
 *   buffer  out for FileRead, in for FileWrite: `length` bytes
 *   length  bytes to move at most
 * Return the number of bytes moved, which may be smaller (0 at the end of the file), or -1. */
MAIL_API int32_t FileRead(int32_t fd, void* buffer, uint32_t length) MAIL_NOEXCEPT;
MAIL_API int32_t FileWrite(int32_t fd, const void* buffer, uint32_t length) MAIL_NOEXCEPT;

/* FileClose - close a descriptor. An interrupted close has closed, and counts as done.
 *   fd  open descriptor; closed also when the result is -1, with which some file systems report
 *       data that could not be stored */
MAIL_API int32_t FileClose(int32_t fd) MAIL_NOEXCEPT;

/* FileDelete - remove a name; the file goes when it has no other name and nobody has it open.
 *   path  the name; a link is removed itself; a directory fails */
MAIL_API int32_t FileDelete(const char* path) MAIL_NOEXCEPT;

/* FileSeek - set the position of a file.
 *   fd      open descriptor
 *   offset  bytes from the origin
 *   origin  SEEK_SET, SEEK_CUR or SEEK_END
 * Returns the new position in bytes from the start, or -1. */
MAIL_API off_t FileSeek(int32_t fd, off_t offset, int32_t origin) MAIL_NOEXCEPT;

/* FileSize, FileSize_Name - size of a file in bytes.
 *   fd    open descriptor
 *   path  regular file, symbolic links followed; anything else gives -1
 * Return the size, INT32_MAX where it does not fit, or -1. */
MAIL_API int32_t FileSize(int32_t fd) MAIL_NOEXCEPT;
MAIL_API int32_t FileSize_Name(const char* path) MAIL_NOEXCEPT;

/* FileStat - status of a file, symbolic links followed.
 *   path    the file
 *   status  out: the record of stat(2) */
MAIL_API int32_t FileStat(const char* path, struct stat* status) MAIL_NOEXCEPT;

/* FileBackUp - rename a file to the same name with ".bak" behind it; an older back-up is replaced.
 *   path  the file; with ".bak" shorter than PATH_MAX, else ENAMETOOLONG */
MAIL_API int32_t FileBackUp(const char* path) MAIL_NOEXCEPT;

/* FileCopy - copy a file from one directory into another, keeping a back-up of what it replaces.
 *   source_dir   directory to copy from
 *   target_dir   directory to copy into; made where it is missing, but not its parents, see
 *                DirectryMake
 *   name         file name in `source_dir`
 *   target_name  file name in `target_dir`, null: the same as `name`
 * The copy gets the owner, permissions and times of the source as far as the process may set them;
 * without the owner it does not get the set-user and set-group bits either. A link in the place of
 * the target is not followed.
 * Returns 0, also when the source does not exist: then nothing is made; -1 when anything fails;
 * the target may then hold a part, and the old one is found under its back-up name. A file copied
 * onto itself fails so, too. */
MAIL_API int32_t FileCopy(const char* source_dir, const char* target_dir, const char* name,
                          const char* target_name) MAIL_NOEXCEPT;

/* RenameFile - rename a file, then delete the old name, also when renaming failed: a failed rename
 * loses the file, and so does a rename onto itself.
 *   old_path, new_path  the names
 * Returns the result of the rename, with its errno. */
MAIL_API int32_t RenameFile(const char* old_path, const char* new_path) MAIL_NOEXCEPT;

/* DirectryOpen - open a directory. Returns a stream that DirectryClose ends, or null.
 * DirectryRead - take the next entry. Returns `entry`, or null at the end or on an error.
 * DirectryClose - close the stream; EBADF for a null one.
 *   path    the directory
 *   stream  from DirectryOpen
 *   entry   out: the caller's record; a name longer than it is cut */
MAIL_API DIR* DirectryOpen(const char* path) MAIL_NOEXCEPT;
MAIL_API struct dirent* DirectryRead(DIR* stream, struct dirent* entry) MAIL_NOEXCEPT;
MAIL_API int32_t DirectryClose(DIR* stream) MAIL_NOEXCEPT;

/* DirectryMake - make one directory, not its parents, with mode 0755, owner "root", group "sys".
 *   path  its name
 * Returns 0; 1 when it was made but could not be given to that owner and group; -1 when it could
 * not be made, because it exists, for example. */
MAIL_API int32_t DirectryMake(const char* path) MAIL_NOEXCEPT;

/* ExecDelDir - remove a directory with all it holds.
 *   path         the directory
 *   depth_limit  number of levels that may be removed; `path` itself is the first
 * In every directory the files go first. Symbolic links to directories are FOLLOWED: what their
 * targets hold is deleted; the link itself is not a directory, so that the result is then -2.
 * Returns 0, also when `path` does not exist; -1 when a directory below the limit is not empty
 * (or the limit is 0 or less: nothing is touched); -2 when anything cannot be read or removed. The
 * first failure ends the work. */
MAIL_API int32_t ExecDelDir(const char* path, int32_t depth_limit) MAIL_NOEXCEPT;

/* CheckString_NotUpLow - compare two texts without regard to letter case, by the rules of the
 * current locale.
 *   text1, text2  the texts
 * Returns 0 equal, -1 different or null. (-2, no memory, is reserved and never returned.) */
MAIL_API int32_t CheckString_NotUpLow(const char* text1, const char* text2) MAIL_NOEXCEPT;

/* ExecCommand - run a command line through the shell and wait for its end, without limit. As with
 * system(), SIGINT and SIGQUIT are ignored and SIGCHLD is blocked meanwhile.
 *   command  text for the shell; a text from outside must be quoted by the caller
 * Returns 0 whatever the command itself returned, even when the shell did not find it; -1 when
 * the shell could not be started. */
MAIL_API int32_t ExecCommand(const char* command) MAIL_NOEXCEPT;

/* DLLOpen - load a shared library with lazy binding. Returns its handle or null.
 * DLLGetProcAddress - find a symbol. Returns its address, or null.
 * DLLClose - unload a library. Returns 0; -1 for a null handle, non-zero on failure.
 *   file    name or path of the library; null: the program itself
 *   handle  from DLLOpen; null for DLLGetProcAddress: all that is loaded is searched
 *   symbol  name of the symbol; null: not found
 * dlerror() tells what failed. */
MAIL_API void* DLLOpen(const char* file) MAIL_NOEXCEPT;
MAIL_API void* DLLGetProcAddress(void* handle, const char* symbol) MAIL_NOEXCEPT;
MAIL_API int32_t DLLClose(void* handle) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif
