/* mime.h - composition of the message, its encodings, streaming and partial pieces. */
#ifndef OVRMAIL_MIME_H
#define OVRMAIL_MIME_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

extern MAIL_API int32_t Content_D_flg;

MAIL_API int32_t SMTP_makeTopData(int32_t fd, const char* body_path, const char* from,
                                  const char* to, const char* subject, char* boundary,
                                  uint32_t multipart, uint32_t skip_address,
                                  uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_makeMIME(int32_t fd, const char* from, const char* to, const char* subject,
                               uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_makeDate(char* dst) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_makeBoundary(char* dst) MAIL_NOEXCEPT;
MAIL_API void SMTP_MakeMsgId(char* dst) MAIL_NOEXCEPT;

MAIL_API void SMTP_makeSubject(const char* subject, char* dst) MAIL_NOEXCEPT;
MAIL_API void SMTP_toISO2022(const char* src, char* dst) MAIL_NOEXCEPT;
MAIL_API uint32_t SMTP_sjistojis(uint32_t code) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_toBase64(char* src, char* dst, int32_t length) MAIL_NOEXCEPT;

MAIL_API int32_t SMTP_makeAppendData(int32_t fd, const char* path, const char* boundary,
                                     uint32_t more_follow, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_makeAppend_TargetFile(int32_t fd, const char* path,
                                            uint32_t* err) MAIL_NOEXCEPT;

MAIL_API int32_t SMTP_sendData(int32_t sock, int32_t fd, uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_getSendData(int32_t fd, char* buffer, int32_t size_kb, const char* boundary,
                                  uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_getline(const char* buffer, int32_t end, char* line,
                              int32_t max) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_addline(int32_t fd, char* dst, int32_t blank_lines,
                              uint32_t* err) MAIL_NOEXCEPT;

MAIL_API int32_t SMTP_sendData_Partial(int32_t sock, const char* piece, int32_t length,
                                       const char* from, const char* to, const char* subject,
                                       int32_t number, int32_t total, const char* id,
                                       uint32_t* err) MAIL_NOEXCEPT;
MAIL_API int32_t SMTP_makeid(char* dst, const char* address) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif
