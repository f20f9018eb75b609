"""Checks that a client's mail says what it was told to say: decoded by Python's email package, not
by anything of this library."""
import binascii
import email
import email.policy

POLICY = email.policy.default


def check(kept, wanted):
    """Returns what is wrong with the mail the sink kept, or None."""
    envelope, _, raw = kept.partition(b"\r\n\r\n")
    recipients = [line[line.index(b"<") + 1:line.rindex(b">")].decode()
                  for line in envelope.split(b"\r\n") if line.upper().startswith(b"RCPT")]
    if recipients != wanted["recipients"]:
        return f"recipients {recipients}"
    message = raw.removesuffix(b".\r\n").replace(b"\r\n..", b"\r\n.")
    header, _, body = message.partition(b"\r\n\r\n")
    top = email.message_from_bytes(header + b"\r\n\r\n", policy=POLICY)
    if top["Subject"] != wanted["subject"]:
        return f"subject {top['Subject']!r}"
    parts = [message]
    if top.get_content_maintype() == "multipart":
        boundary = b"--" + top.get_boundary().encode()
        parts = [part[2:].removesuffix(b"\r\n")
                 for part in (b"\r\n" + body).split(b"\r\n" + boundary)[1:-1]]
    return check_text(parts[0], wanted["text"]) or check_file(parts[1:], wanted["attachment"])


def check_text(part, wanted):
    text = email.message_from_bytes(part, policy=POLICY).get_content()
    if text.replace("\r\n", "\n").rstrip("\n") != wanted.rstrip("\n"):
        return f"text of {len(text)} characters differs"
    return None


def check_file(parts, path):
    """Big parts: only the header goes through the email package, the data through binascii."""
    if len(parts) != (path is not None):
        return f"{len(parts)} attachments"
    if path is None:
        return None
    header, _, encoded = parts[0].partition(b"\r\n\r\n")
    part = email.message_from_bytes(header + b"\r\n\r\n", policy=POLICY)
    if part["Content-Transfer-Encoding"].lower() != "base64":
        return f"encoding {part['Content-Transfer-Encoding']}"
    if len(encoded) > 1000 and max(map(len, encoded[:100_000].split(b"\r\n"))) > 998:
        return "lines too long"
    with open(path, "rb") as file:
        return None if binascii.a2b_base64(encoded) == file.read() else "attachment differs"
