/* trace.h - trace rings: files of fixed size that hold the newest records.
 *
 * Every send and every status query leaves records of its steps in a ring of its own, a file in
 * "/var/opt/Quorvin/tmp2" named after the process and the thread; the command ovrm-trace reads it.
 * Settings come from "/etc/opt/Quorvin/trc_conf": section "ACERT" (sending a mail) or "AGETS"
 * (status query), keys TRACESIZE (KiB, above 0), TRACELEVEL (0: no trace) and TRACENUM (files
 * kept, 0 or more), all of at most 31 bits. A missing file or key means the caller's default; a
 * text without digits counts as 0.
 *
 * Levels of records: 0 failure, 1 entry and exit, 2 detail. A ring of level 1 takes records of
 * levels 0 and 1, one of level 2 takes all, one of level 0 none.
 *
 * On ext2, ext3, ext4 and tmpfs a ring is mapped into memory. While it is open nobody may shorten
 * the file: a record into the missing part would raise SIGBUS. Deleting or renaming the file does
 * no harm. On any other file system, where overwriting may need room on the disk, records are
 * written by system calls, and lost when the disk is full. */
#ifndef OVRMAIL_TRACE_H
#define OVRMAIL_TRACE_H

#include <pthread.h>

#include "mail_types.h"

MAIL_BEGIN_DECLS

typedef struct TraceHandle TraceHandle;

/* Ring of the send in progress, null without one. Set by OvRm_SendEMail; a caller that uses the
 * functions below it directly may set a ring of its own between two sends. */
extern MAIL_API TraceHandle* g_trace;

/* Held while a record of any ring of the process is written. Topen initialises it, Tclose destroys
 * it. Callers need not touch it. */
extern MAIL_API pthread_mutex_t g_cs;

/* Topen - open or create a trace ring.
 *   path     file of the ring; kept records are continued, permissions become 0644. Only a regular
 *            file of the effective user with no other name is taken (else EPERM or ELOOP)
 *   size_kb  wanted size in KiB; the ring gets the next multiple of 8 KiB above it (5: 8, 8: 16),
 *            less than 4 GiB
 *   level    highest record level to write; above 2 is as 2
 * The records of an existing ring stay when it is not longer than the new size. For a ring that is
 * new, shorter, or not laid down on the disk, a temporary file is made beside it and removed again.
 * Returns a handle to be ended with Tclose; with level or size 0 one without a file, to which
 * nothing is written. Null (errno tells why): no memory, or the file cannot be opened, created,
 * brought to its size or mapped. The other functions accept null, so callers need no test.
 * Blocks for disk input and output only. */
MAIL_API TraceHandle* Topen(const char* path, uint32_t size_kb, uint32_t level) MAIL_NOEXCEPT;

/* Twrite - append one record; it overwrites the oldest ones.
 *   trace   handle from Topen, or null
 *   level   0 to 2; a record above the handle's level is not written
 *   point   name of the place in the program; up to half the ring is kept
 *   data    bytes to keep, or null
 *   length  number of bytes; up to half the ring is kept
 * Returns 0, also when the record is not written because of its level, a damaged ring or a full
 * disk; -1 when trace is null or the level is above 2. errno is left as it was. Any number of
 * threads may write to one ring. For a mapped ring it makes no system call unless another thread is
 * writing. */
MAIL_API int32_t Twrite(TraceHandle* trace, uint32_t level, const char* point, const void* data,
                        uint32_t length) MAIL_NOEXCEPT;

/* Tclose - close a ring and free its handle; no other thread may be writing to it.
 *   trace  handle from Topen, or null
 * Returns 0; -1 when trace is null or the file could not be unmapped or closed (the handle
 * is freed in every case). */
MAIL_API int32_t Tclose(TraceHandle* trace) MAIL_NOEXCEPT;

/* GetTraceInfo - trace settings of a section.
 *   section  "ACERT" or "AGETS"
 *   unused   ignored; 0
 *   size_kb  in: default, out: TRACESIZE in KiB
 *   level    in: default, out: TRACELEVEL
 *   number   in: default, out: TRACENUM
 * Returns 0; -1 with all three left as they were when one of the values is out of range (size 0 or
 * less, level or number below 0, any above INT32_MAX), a pointer is null or memory runs out. */
MAIL_API int32_t GetTraceInfo(const char* section, uint32_t unused, int32_t* size_kb,
                              int32_t* level, int32_t* number) MAIL_NOEXCEPT;

/* Trc_GetSizeLevel - older form of GetTraceInfo, without a number.
 *   section  "ACERT" or "AGETS"
 *   size_kb  out: TRACESIZE, 100 when absent; not checked, but brought into the range of 32 bits
 *   level    out: TRACELEVEL, 0 when absent, 2 for anything that is not 0 to 2 */
MAIL_API void Trc_GetSizeLevel(const char* section, int32_t* size_kb, int32_t* level) MAIL_NOEXCEPT;

/* MakeTraceFileName - path of the calling thread's ring.
 *   buffer  out: "/var/opt/Quorvin/tmp2/PREFIXprocess-thread.trc", 1,025 bytes of room; untouched
 *           with level 0
 *   unused  ignored; 0
 *   prefix  "acert" (sending a mail) or "agets" (status query)
 *   level   TRACELEVEL */
MAIL_API void MakeTraceFileName(char* buffer, uint32_t unused, const char* prefix,
                                uint32_t level) MAIL_NOEXCEPT;

/* DeleteOldFiles - make room for one more ring: DeleteOldFiles_DIR on the trace directory.
 *   unused  ignored; 0
 *   prefix  beginning of the names
 *   number  as count of DeleteOldFiles_DIR
 *   level   0: do nothing */
MAIL_API int32_t DeleteOldFiles(uint32_t unused, const char* prefix, int32_t number,
                                uint32_t level) MAIL_NOEXCEPT;

/* DeleteOldFiles_DIR - delete the oldest files of a directory.
 *   directory  where they lie
 *   prefix     beginning of their names, case-sensitive; other files are left alone
 *   extension  ignored
 *   count      the newest count - 1 regular files stay (by time of modification; links are
 *              followed), so that count files exist once the caller has made its own
 *   enabled    0: do nothing
 * Returns 0 (also when a file could not be deleted); -1 no such directory; -2 it cannot be read;
 * -3 no memory, nothing was deleted. */
MAIL_API int32_t DeleteOldFiles_DIR(const char* directory, const char* prefix,
                                    const char* extension, int32_t count,
                                    uint32_t enabled) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif
