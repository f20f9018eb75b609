"""message.py - a message of Python's email package: any characters, HTML, a file with its type.

Usage: message.py SERVER PORT FROM TO CSV_FILE
"""
import pathlib
import sys
from email.message import EmailMessage

import ovrmail

server, port, sender, recipient, report = sys.argv[1:]
mail = EmailMessage()
mail["From"], mail["To"], mail["Subject"] = f"Überwachung <{sender}>", recipient, "⚠️ Disk usage"
mail.set_content("Above 90 %.\n")
mail.add_alternative("<p>Above <b>90 %</b>.</p>", subtype="html")
mail.add_attachment(pathlib.Path(report).read_text(), subtype="csv",
                    filename=pathlib.Path(report).name)
try:
    ovrmail.send_message(mail, server=server, port=int(port))
except ovrmail.SendError as error:
    sys.exit(str(error))
