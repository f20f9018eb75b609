/* mime.h - composition of the message, its encodings, streaming and partial pieces.
 *
 * A message is composed into a file: SMTP_makeTopData writes the header block and the text part,
 * SMTP_makeAppendData each attachment. The file is then in wire form (lines end in CR LF, leading
 * dots are doubled) and is streamed unchanged by SMTP_sendData, or cut by SMTP_getSendData and sent
 * piece by piece by SMTP_sendData_Partial.
 *
 * Results are 0 (or a count) or one of
 *   -31  a file to be read cannot be opened
 *   -32  a file cannot be read, or not be repositioned while it is streamed or cut
 *   -33  the composition file took less than it was given, or a file could not be repositioned
 *        while composing
 * and, where a server is spoken to, those of SMTP_send.
 *
 * Arguments of several functions:
 *   fd    composition file; stays open, whatever happens, and belongs to the caller
 *   sock  descriptor from SMTP_connect; stays open, whatever happens, and belongs to the caller
 *   err   null, or out: errno of the failing call, ENOSPC for a write that was cut short, for a
 *         body, attachment or prepared file EISDIR (21) where it is a directory and EINVAL (22)
 *         where it is no regular file either, EIO for a file that has become shorter while it was
 *         sent
 * A null text counts as empty. Nothing written before a failure is removed: the caller discards the
 * file. Memory belongs to the caller.
 *
 * Text and subject are Shift_JIS or ASCII. Addresses and subject go into the header as they are:
 * they must hold no CR or LF. Not reentrant: one message at a time in a process. */
#ifndef OVRMAIL_MIME_H
#define OVRMAIL_MIME_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

/* Form of the Content-Disposition field of attachments. 1: the file name alone in quotes; any other
 * value [0]: "attachment" with a filename parameter (RFC 2183). Set from the mail options. */
extern MAIL_API int32_t Content_D_flg;

/* SMTP_makeTopData - write the beginning of a MIME message (RFC 822, RFC 2045).
 *   fd            open for writing; written from its start, never truncated, its position then
 *                 behind the last byte written
 *   body_path     regular file with the text, CR LF line ends; null: no text part
 *   from, to      sender; recipients with commas between them, one a line in the To field
 *   subject       encoded as by SMTP_makeSubject; null: the field is empty
 *   boundary      40 bytes, out: the boundary when multipart is 1, for the calls that follow; null:
 *                 not wanted
 *   multipart     1: multipart/mixed, attachments will follow; else a single part
 *   skip_address  nonzero: no Date, From and To, because partial pieces will carry them
 *   err           as in the head of this file
 * The boundary is that of SMTP_makeBoundary; while the body holds it, its seconds are counted up by
 * one (RFC 2046 5.1.1).
 * The text is ISO-2022-JP when it holds a Shift_JIS lead byte, else us-ascii. CR LF alone ends a
 * line. A line that has 1,024 bytes and no end yet is broken there; the second byte of a pair or
 * of a CR LF still belongs to it. A dot is doubled (RFC 5321 4.5.2) at the start of a
 * line, also behind a break, and after a lone CR or LF, which some servers take for a line end. So
 * no text can end the mail. In Japanese text a pair with an invalid trail byte ends its line, the
 * rest of which is lost with the CR LF; a lead byte before CR LF stays as it is.
 * Returns 0; -31 body not opened; -32 body not read; -33. */
MAIL_API int32_t SMTP_makeTopData(int32_t fd, const char* body_path, const char* from,
                                  const char* to, const char* subject, char* boundary,
                                  uint32_t multipart, uint32_t skip_address,
                                  uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_makeMIME - write Date, From, To, Subject and Message-Id only, for a message whose MIME
 * header is prepared elsewhere. The header block is not ended.
 *   fd, from, to, subject, err  as for SMTP_makeTopData
 * Returns 0 or -33. */
MAIL_API int32_t SMTP_makeMIME(int32_t fd, const char* from, const char* to, const char* subject,
                               uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_makeDate - the present local time as the value of a Date field.
 *   dst  32 bytes, out: "Thu, 01 Jan 1970 00:00:00 -0000"; null: nothing is written
 * The offset of the zone is that of SMTP_GetTimeDifference: in summer time it is the offset of
 * winter beside the clock of summer, so that readers see a time one hour too late; half hours are
 * cut off. The offset 0 has a minus sign. Where that matters, run the process with TZ=UTC.
 * Returns the length, 31; 0 for a null dst. */
MAIL_API int32_t SMTP_makeDate(char* dst) MAIL_NOEXCEPT;

/* SMTP_makeBoundary - a multipart boundary from the present second.
 *   dst  40 bytes, out: 31 bytes and a NUL for all present times; null: nothing is written
 * Two calls in one second give the same.
 * Returns the length, or 0 for a null dst. */
MAIL_API int32_t SMTP_makeBoundary(char* dst) MAIL_NOEXCEPT;

/* SMTP_MakeMsgId - a whole Message-Id line with its CR LF.
 *   dst  400 bytes, out; null: nothing is written
 * It is made of the microsecond and the host: two processes of one host that make one in the same
 * microsecond make the same.
 * The host in it is the node name, with the domain of /etc/resolv.conf when it has no dot; it is
 * found at the first call and then kept. */
MAIL_API void SMTP_MakeMsgId(char* dst) MAIL_NOEXCEPT;

/* SMTP_makeSubject - the value of a Subject field (RFC 2047, ISO-2022-JP in base64).
 *   subject  without a Shift_JIS lead byte it is copied unchanged
 *   dst      out, 17 * strlen(subject) + 8 bytes for the worst case of a Japanese subject; null:
 *            nothing is written
 * Long results are folded: CR LF and a blank stand inside. An invalid pair ends the subject. */
MAIL_API void SMTP_makeSubject(const char* subject, char* dst) MAIL_NOEXCEPT;

/* SMTP_toISO2022 - convert a line from Shift_JIS to ISO-2022-JP (RFC 1468).
 *   src  the line
 *   dst  out, 3 * strlen(src) + 3 bytes for the worst case; ends with NUL; null: nothing is written
 * A dot at the start, or behind a CR or LF, is doubled (RFC 5321 4.5.2). A lead byte just before
 * the NUL is left out, one before CR LF stays as it is. A pair with an invalid trail byte becomes a
 * zero byte and one more byte. */
MAIL_API void SMTP_toISO2022(const char* src, char* dst) MAIL_NOEXCEPT;

/* SMTP_sjistojis - JIS X 0208 code of a Shift_JIS pair.
 *   code  the pair: first byte * 256 + second byte
 * Returns its code in the same form; 0 when the first byte is no lead byte; the two bytes ORed,
 * below 0x100, when the second is no trail byte. */
MAIL_API uint32_t SMTP_sjistojis(uint32_t code) MAIL_NOEXCEPT;

/* SMTP_toBase64 - encode in one line (RFC 4648).
 *   src     `length` bytes, and room for the three zero bytes that are written behind them; null
 *           counts as no bytes
 *   dst     out, (length + 2) / 3 * 4 + 1 bytes, not overlapping src; ends with NUL
 *   length  number of bytes; below 0 counts as 0
 * Returns the length without the NUL; 0 for a null dst. */
MAIL_API int32_t SMTP_toBase64(char* src, char* dst, int32_t length) MAIL_NOEXCEPT;

/* SMTP_makeAppendData - append a file as a base64 part (RFC 2045 6.8), at the file position.
 *   fd           open for writing
 *   path         regular file to attach; what follows its last "/" or ":" (not in first place) is
 *                the name the reader sees. Each CR or LF in the name becomes a blank; nothing is
 *                quoted, so a quote in it ends the name there
 *   boundary     as made by SMTP_makeTopData
 *   more_follow  0: the last attachment, the closing delimiter is written behind it
 *   err          as in the head of this file
 * Returns 0; -31 attachment not opened; -32 attachment not read; -33. */
MAIL_API int32_t SMTP_makeAppendData(int32_t fd, const char* path, const char* boundary,
                                     uint32_t more_follow, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_makeAppend_TargetFile - append a prepared text file, at the file position.
 *   fd    open for writing
 *   path  regular file, a text with LF line ends and leading dots already doubled
 *   err   as in the head of this file
 * Each LF becomes CR LF, so a CR LF becomes CR CR LF; a line of more than 1,027 bytes is broken.
 * Returns 0; -31 not opened or not read; -33. */
MAIL_API int32_t SMTP_makeAppend_TargetFile(int32_t fd, const char* path,
                                            uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_sendData - send the whole composition file, between SMTP_startData and SMTP_endData.
 *   sock, err  as in the head of this file
 *   fd         read from its start, seekable
 * Each block of 1,028 bytes has the ulSendDataTimeOut seconds of g_stMailTimeout.
 * Returns 0 when everything was sent; -32, also when the file ends earlier than it did at first; -3
 * or -6 as SMTP_send. After a failure the end mark must not be sent. */
MAIL_API int32_t SMTP_sendData(int32_t sock, int32_t fd, uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_getSendData - read the next piece of a composition file.
 *   fd        seekable; read on from its position, which is then behind the piece
 *   buffer    out, size_kb * 1,024 bytes; a NUL follows where the piece leaves room
 *   size_kb   KiB, 1 to 2,097,151
 *   boundary  as made by SMTP_makeTopData; empty or null: the message has no parts
 *   err       as in the head of this file
 * A piece holds (size_kb - 1) * 1,024 bytes and what it takes to end with a line and not inside the
 * header of a part; less where the next line does not fit. Only a line longer than the buffer is
 * cut, never inside a CR LF nor so that the next piece starts with a dot that could end the mail.
 * Returns the bytes in the piece, 0 when nothing is left; -32 (EINVAL for bad arguments). */
MAIL_API int32_t SMTP_getSendData(int32_t fd, char* buffer, int32_t size_kb, const char* boundary,
                                  uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_getline - the line before a position, for a walk from the end of a buffer to its start.
 *   buffer  the text
 *   end     the length of the text at first, then the value returned
 *   line    out: at most the last max - 1 bytes of the line and a NUL; whole with its CR LF, except
 *           the first line taken, which lacks its LF
 *   max     bytes that line has room for
 * Returns the position of the line's start, counted from 1: 1 is the start of the buffer. */
MAIL_API int32_t SMTP_getline(const char* buffer, int32_t end, char* line,
                              int32_t max) MAIL_NOEXCEPT;

/* SMTP_addline - read lines from a file behind a piece.
 *   fd           seekable; read on from its position, which is then behind the lines
 *   dst          out, 1,024 bytes directly behind the piece: with blank_lines above 0 the byte
 *                before dst is looked at. No NUL is added
 *   blank_lines  0: one line; n: all up to the n-th blank line, and one line more
 *   err          as in the head of this file
 * At most 1,024 bytes are taken; lines that do not fit stay in the file, only a first line longer
 * than that is cut. At the end of the file what there is.
 * Returns the bytes read, or -32 (EINVAL for a null dst). */
MAIL_API int32_t SMTP_addline(int32_t fd, char* dst, int32_t blank_lines,
                              uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_sendData_Partial - send one piece as a message/partial message (RFC 2046 5.2.2), between
 * SMTP_startData and SMTP_endData.
 *   sock, err          as in the head of this file
 *   piece, length      the bytes as read by SMTP_getSendData, and their number, 1 or more
 *   from, to, subject  as for SMTP_makeTopData; number and total follow the subject
 *   number, total      position of the piece, from 1, and number of pieces
 *   id                 the same for all pieces, as made by SMTP_makeid
 * Returns 0; -3 or -6 as SMTP_send. Header and piece together have ulSendDataTimeOut seconds. */
MAIL_API int32_t SMTP_sendData_Partial(int32_t sock, const char* piece, int32_t length,
                                       const char* from, const char* to, const char* subject,
                                       int32_t number, int32_t total, const char* id,
                                       uint32_t* err) MAIL_NOEXCEPT;

/* SMTP_makeid - an identifier for the pieces of one message.
 *   dst      out, 160 + strlen(address) bytes; null: nothing is written
 *   address  follows an "@"; each "@" in it becomes "."
 * Unique as far as SMTP_MakeMsgId is. Returns the length, or 0 for a null dst. */
MAIL_API int32_t SMTP_makeid(char* dst, const char* address) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif
