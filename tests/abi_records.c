/* The binary contract in numbers, as docs/abi.md tells it: offsets and sizes of every public record
 * and exported object, for 64-bit (LP64) and 32-bit (ILP32) programs, and the values of all
 * constants. Compiled as C11 and as C++; nothing here runs. */
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
#define SIZE(what, lp64, ilp32) static_assert(sizeof(what) == BY_MODEL(lp64, ilp32), #what)
#define AT(record, field, offset) static_assert(offsetof(record, field) == (offset), #field)
#define VALUE(name, value) static_assert((name) == (value), #name)

AT(MailEntry, kind, 0);
AT(MailEntry, reserved, 4);
AT(MailEntry, value, 8);
SIZE(MailEntry, 16, 12);

AT(MailSplitOption, lSplitSize, 0);
AT(MailSplitOption, ulPort, 4);
SIZE(MailSplitOption, 8, 8);

AT(MailTimeout, ulConnectTimeOut, 0);
AT(MailTimeout, ulMailFromTimeOut, 4);
AT(MailTimeout, ulRcptToTimeOut, 8);
AT(MailTimeout, ulDataTimeOut, 12);
AT(MailTimeout, ulSendDataTimeOut, 16);
AT(MailTimeout, ulEndDataTimeOut, 20);
SIZE(MailTimeout, 24, 24);

AT(MailPopAccount, ulPort, 0);
AT(MailPopAccount, lWaitMs, 4);
AT(MailPopAccount, szUser, 8);
AT(MailPopAccount, szPassword, 73);
AT(MailPopAccount, szHost, 138);
AT(MailPopAccount, usTimeOut, 396);
SIZE(MailPopAccount, 400, 400);

AT(MailAuthAccount, ulMechanisms, 0);
AT(MailAuthAccount, szUser, 4);
AT(MailAuthAccount, szPassword, 69);
SIZE(MailAuthAccount, 136, 136);

AT(MailInstInfo, ulMajorVersion, 0);
AT(MailInstInfo, ulLevel, 4);
AT(MailInstInfo, ulMinorVersion, 8);
AT(MailInstInfo, ulCompanionMajorVersion, 12);
AT(MailInstInfo, ulCompanionLevel, 16);
AT(MailInstInfo, ulCompanionMinorVersion, 20);
AT(MailInstInfo, szInstallDir, 24);
AT(MailInstInfo, szConfigDir, 285);
AT(MailInstInfo, szDataDir, 546);
AT(MailInstInfo, szPartnerInstallDir, 807);
AT(MailInstInfo, szPartnerConfigDir, 1068);
AT(MailInstInfo, szPartnerDataDir, 1329);
AT(MailInstInfo, ulAddon, 1592);
AT(MailInstInfo, ulStartType, 1596);
SIZE(MailInstInfo, 1600, 1600);

AT(MailMd5Context, state, 0);
AT(MailMd5Context, count, 16);
AT(MailMd5Context, buffer, 24);
SIZE(MailMd5Context, 88, 88);

AT(MailLangInfo, kind, 0);
AT(MailLangInfo, name, 4);
SIZE(MailLangInfo, 36, 36);

SIZE(g_trace, 8, 4);
SIZE(g_pLogHandle, 8, 4);
SIZE(g_cs, 40, 24);
SIZE(g_stMailTimeout, 24, 24);
SIZE(g_ulTimeOut, 4, 4);
SIZE(g_tStartTime, 8, 4);
SIZE(g_ulPopTimeOut, 4, 4);
SIZE(Content_D_flg, 4, 4);
SIZE(stEucLangInfo, 324, 324);
SIZE(stSjisLangInfo, 180, 180);

VALUE(MAIL_KIND_RECIPIENT, 1);
VALUE(MAIL_KIND_BODY, 2);
VALUE(MAIL_KIND_ATTACHMENT, 3);
VALUE(MAIL_KIND_ATTACHMENT_TEMP, 4);
VALUE(MAIL_KIND_PREPARED, 5);
VALUE(MAIL_KIND_PREPARED_HEADER, 6);
VALUE(MAIL_AUTH_POP_BEFORE_SMTP, 1);
VALUE(MAIL_AUTH_SMTP, 2);
VALUE(MAIL_MECH_LOGIN, 1);
VALUE(MAIL_MECH_PLAIN, 2);
VALUE(MAIL_MECH_CRAM_MD5, 4);
VALUE(MAIL_SENT, 0);
VALUE(MAIL_SENT_UNCONVERTED, 1);
VALUE(MAIL_SENT_UNAUTHENTICATED, 2);
VALUE(MAIL_E_ARGUMENT, -1);
VALUE(MAIL_E_MEMORY, -2);
VALUE(MAIL_E_WORK_FILE, -3);
VALUE(MAIL_E_TIMEOUT, -4);
VALUE(MAIL_E_RECIPIENT, -5);
VALUE(MAIL_E_REJECTED, -6);
VALUE(MAIL_E_SYSTEM, -7);
VALUE(MAIL_E_ATTACHMENT, -8);
VALUE(MAIL_E_BUSY, -9);
VALUE(MAIL_E_CONNECT, -10);
VALUE(MAIL_E_POP_REFUSED, -15);
VALUE(MAIL_E_POP_SYSTEM, -16);
VALUE(MAIL_E_POP_TIMEOUT, -17);
VALUE(MAIL_E_POP_CONNECT, -18);
VALUE(MAIL_E_INTERNAL, -20);
VALUE(MAIL_E_REJECTED_AUTH_FAILED, -25);
VALUE(MAIL_E_REJECTED_NO_AUTH, -26);
