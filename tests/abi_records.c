/* The binary contract in numbers, as docs/abi.md tells it: offsets and sizes of every public record
 * and exported object, for 64-bit (LP64) and 32-bit (ILP32) programs, and the values of
 * constants; those of results are in users/man_pages_test.py. Compiled as C11 and as C++; nothing
 * here runs. */
#include <assert.h>
#include <stddef.h>

#include "codeset.h"
#include "inst_info.h"
#include "mail_api.h"
#include "mail_log.h"
#include "md5.h"
#include "mime.h"
#include "pop3.h"
#include "smtp.h"
#include "trace.h"

#if UINTPTR_MAX > 0xffffffff
#define BY_MODEL(lp64, ilp32) (lp64)
#else
#define BY_MODEL(lp64, ilp32) (ilp32)
#endif
/* pthread_mutex_t of the C library is larger on 64-bit ARM than on x86-64 and s390x. */
#if defined(__aarch64__) && defined(__LP64__)
#define MUTEX_LP64 48
#else
#define MUTEX_LP64 40
#endif
#define HOLDS(what, ...) static_assert((__VA_ARGS__), what)
#define SIZE(what, lp64, ilp32) (sizeof(what) == BY_MODEL(lp64, ilp32))
#define AT(field, offset) (offsetof(Record, field) == (offset))
/* The test of one record; inside a function, where its name is free to be Record. */
#define RECORD(name, lp64, ilp32, ...)                          \
    void layout_of_##name(void) {                               \
        typedef name Record;                                    \
        HOLDS(#name, SIZE(Record, lp64, ilp32) && __VA_ARGS__); \
    }
RECORD(MailEntry, 16, 12, AT(kind, 0) && AT(reserved, 4) && AT(value, 8))
RECORD(MailSplitOption, 8, 8, AT(lSplitSize, 0) && AT(ulPort, 4))
RECORD(MailTimeout, 24, 24,
       AT(ulConnectTimeOut, 0) && AT(ulMailFromTimeOut, 4) && AT(ulRcptToTimeOut, 8) &&
           AT(ulDataTimeOut, 12) && AT(ulSendDataTimeOut, 16) && AT(ulEndDataTimeOut, 20))
RECORD(MailPopAccount, 400, 400,
       AT(ulPort, 0) && AT(lWaitMs, 4) && AT(szUser, 8) && AT(szPassword, 73) && AT(szHost, 138) &&
           AT(usTimeOut, 396))
RECORD(MailAuthAccount, 136, 136, AT(ulMechanisms, 0) && AT(szUser, 4) && AT(szPassword, 69))
RECORD(MailInstInfo, 1600, 1600,
       AT(ulMajorVersion, 0) && AT(ulLevel, 4) && AT(ulMinorVersion, 8) &&
           AT(ulCompanionMajorVersion, 12) && AT(ulCompanionLevel, 16) &&
           AT(ulCompanionMinorVersion, 20) && AT(szInstallDir, 24) && AT(szConfigDir, 285) &&
           AT(szDataDir, 546) && AT(szPartnerInstallDir, 807) && AT(szPartnerConfigDir, 1068) &&
           AT(szPartnerDataDir, 1329) && AT(ulAddon, 1592) && AT(ulStartType, 1596))
RECORD(MailMd5Context, 88, 88, AT(state, 0) && AT(count, 16) && AT(buffer, 24))
RECORD(MailLangInfo, 36, 36, AT(kind, 0) && AT(name, 4))

HOLDS("exported objects", SIZE(g_trace, 8, 4) && SIZE(g_pLogHandle, 8, 4) &&
                              SIZE(g_cs, MUTEX_LP64, 24) && SIZE(g_stMailTimeout, 24, 24) &&
                              SIZE(g_ulTimeOut, 4, 4) && SIZE(g_tStartTime, 8, 4) &&
                              SIZE(g_ulPopTimeOut, 4, 4) && SIZE(Content_D_flg, 4, 4) &&
                              SIZE(stEucLangInfo, 324, 324) && SIZE(stSjisLangInfo, 180, 180));

HOLDS("kinds of entries", MAIL_KIND_RECIPIENT == 1 && MAIL_KIND_BODY == 2 &&
                              MAIL_KIND_ATTACHMENT == 3 && MAIL_KIND_ATTACHMENT_TEMP == 4 &&
                              MAIL_KIND_PREPARED == 5 && MAIL_KIND_PREPARED_HEADER == 6);
HOLDS("authentication", MAIL_AUTH_POP_BEFORE_SMTP == 1 && MAIL_AUTH_SMTP == 2 &&
                            MAIL_MECH_LOGIN == 1 && MAIL_MECH_PLAIN == 2 &&
                            MAIL_MECH_CRAM_MD5 == 4);
