/* trace.h - trace rings: fixed-size, memory-mapped files of short records. */
#ifndef OVRMAIL_TRACE_H
#define OVRMAIL_TRACE_H

#include <pthread.h>

#include "mail_types.h"

MAIL_BEGIN_DECLS

typedef struct TraceHandle TraceHandle;

extern MAIL_API TraceHandle* g_trace;
extern MAIL_API pthread_mutex_t g_cs;

MAIL_API TraceHandle* Topen(const char* path, uint32_t size_kb, uint32_t level) MAIL_NOEXCEPT;
MAIL_API int32_t Twrite(TraceHandle* trace, uint32_t level, const char* point, const void* data,
                        uint32_t length) MAIL_NOEXCEPT;
MAIL_API int32_t Tclose(TraceHandle* trace) MAIL_NOEXCEPT;
MAIL_API int32_t GetTraceInfo(const char* section, uint32_t unused, int32_t* size_kb,
                              int32_t* level, int32_t* number) MAIL_NOEXCEPT;
MAIL_API void Trc_GetSizeLevel(const char* section, int32_t* size_kb, int32_t* level) MAIL_NOEXCEPT;
MAIL_API void MakeTraceFileName(char* buffer, uint32_t unused, const char* prefix,
                                uint32_t level) MAIL_NOEXCEPT;
MAIL_API int32_t DeleteOldFiles(uint32_t unused, const char* prefix, int32_t number,
                                uint32_t level) MAIL_NOEXCEPT;
MAIL_API int32_t DeleteOldFiles_DIR(const char* directory, const char* prefix,
                                    const char* extension, int32_t count,
                                    uint32_t enabled) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif
