/* profile.h - INI-style profile files.
 *
 * A profile is a copy of the file in memory. Calling order: open, any number of gets and writes,
 * close. A profile belongs to one thread at a time; different profiles are independent.
 *
 * The file, line by line: "[name]" starts a section, "key=value" adds a key to it; blank lines,
 * lines whose first character after blanks is ";", and all other lines are ignored. Nothing is
 * trimmed: blanks around the "=" belong to key and value. Names are compared byte by byte; of
 * several sections or keys of one name the first counts. A line ends at LF, and what follows a CR
 * or a NUL in it is ignored; one of more than 1,024 bytes goes on as a line of its own. Names
 * hold at most 67 bytes: a longer key is ignored, a longer section with all its keys. */
#ifndef OVRMAIL_PROFILE_H
#define OVRMAIL_PROFILE_H

#include "mail_types.h"

MAIL_BEGIN_DECLS

typedef struct MailProfile MailProfile;

/* Com_OpenPrivateProfile, Com_OpenPrivateProfile2 - read a file.
 *   path   the file; null: none, the profile is empty
 *   flags  0 read only; otherwise writable, with bit 0x20 lines are written with CR LF, not LF
 *   err    null, or out: errno when memory runs out, else untouched
 * Returns a profile that the caller closes, or null when memory runs out. A file that cannot be
 * opened or read, or is no regular file, gives an empty profile: written back, it holds the changes
 * alone. */
MAIL_API MailProfile* Com_OpenPrivateProfile(const char* path, uint32_t flags) MAIL_NOEXCEPT;
MAIL_API MailProfile* Com_OpenPrivateProfile2(const char* path, uint32_t flags,
                                              uint32_t* err) MAIL_NOEXCEPT;

/* Com_ClosePrivateProfile, Com_ClosePrivateProfile2 - write changes back and free the profile.
 *   profile  from Com_OpenPrivateProfile or Com_OpenPrivateProfile2, or null
 *   path     file to write; null: nothing is written
 *   err      null, or out: errno of a failed open, write or close, EINVAL for what is no regular
 *            file; else untouched
 * Writes only a writable profile that was changed and whose changes all found memory: each
 * section that has keys, each key, in order. Comments, ignored lines and empty sections are lost.
 * Returns 0; -1 for a null profile, or when the file could not be written. The profile is freed in
 * every case.
 * The file is written in place, so that its owner, mode and links stay; a missing one is made with
 * mode 0644 less the umask. Disk space is claimed and the old content kept in memory before the
 * first byte changes; after a failed or short write (ENOSPC) the old content is put back. So the
 * file holds the old or the new text, with three exceptions: a crash while writing, a file system
 * that needs space even to overwrite old blocks, and an error that only closing reports. */
MAIL_API int32_t Com_ClosePrivateProfile(MailProfile* profile, const char* path) MAIL_NOEXCEPT;
MAIL_API int32_t Com_ClosePrivateProfile2(MailProfile* profile, const char* path,
                                          uint32_t* err) MAIL_NOEXCEPT;

/* Com_GetPrivateProfileString - copy the value of a key, or `fallback` when there is none.
 *   profile   open, or null
 *   section, key  their names; null: there is no such key
 *   fallback  null counts as the empty text
 *   buffer    out: at most size - 1 bytes and a NUL; null: nothing is written
 *   size      bytes that buffer has room for; 0: nothing is written
 * Returns the number of bytes copied, without the NUL; -1 for a null profile. */
MAIL_API int32_t Com_GetPrivateProfileString(const MailProfile* profile, const char* section,
                                             const char* key, const char* fallback, char* buffer,
                                             uint32_t size) MAIL_NOEXCEPT;

/* Com_GetPrivateProfileInt - the value of a key as a decimal number.
 *   profile       open, or null
 *   section, key  their names; null: there is no such key
 *   fallback      the default
 *   path          not used
 * Of the value the first 11 bytes count: blanks, a sign, digits up to the first other
 * character; no digits give 0; what does not fit 32 bits becomes INT32_MIN or INT32_MAX.
 * Returns `fallback` when the value is empty; when the key is missing `fallback`, or 0 where that
 * is negative; 0 for a null profile. */
MAIL_API int32_t Com_GetPrivateProfileInt(const MailProfile* profile, const char* section,
                                          const char* key, int32_t fallback,
                                          const char* path) MAIL_NOEXCEPT;

/* Com_GetPrivateProfileIntHex - the value of a key as a hexadecimal number.
 *   profile       open, or null
 *   section, key  their names; null: there is no such key
 *   fallback      the default
 *   path          not used
 * Of the value the first 1,024 bytes count: hexadecimal digits of either case, after "0x" or
 * without ("0x" alone is 0); of more than eight digits the low 32 bits are kept.
 * Returns `fallback` for any other value, a missing key or a null profile. */
MAIL_API int32_t Com_GetPrivateProfileIntHex(const MailProfile* profile, const char* section,
                                             const char* key, int32_t fallback,
                                             const char* path) MAIL_NOEXCEPT;

/* Com_WritePrivateProfileString - change the profile in memory.
 *   profile  open and writable
 *   section  name of the section
 *   key      name of the key; null: the section is deleted with all its keys
 *   value    any length; null: the key is deleted
 * A section or key that is missing is appended at the end, a value that exists is replaced in its
 * place. Texts are stored as they are: a line break or a "=" in a name is read differently later.
 * Returns 1, also when there was nothing to delete; 0 for a null or read-only profile, a null
 * section, a name of more than 67 bytes, or when memory runs out: closing then writes
 * nothing. */
MAIL_API int32_t Com_WritePrivateProfileString(MailProfile* profile, const char* section,
                                               const char* key, const char* value) MAIL_NOEXCEPT;

MAIL_END_DECLS

#endif
