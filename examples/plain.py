"""plain.py - the smallest program: a text with a file attached, to one recipient.

Usage: plain.py SERVER FROM TO FILE [PORT]
"""
import sys

import ovrmail

server, sender, recipient, report, *port = sys.argv[1:]
try:
    ovrmail.send(sender, recipient, "ディスク使用量", "90 % を超えました。", [report],
                 server=server, port=int(port[0]) if port else 25)
except ovrmail.SendError as error:
    sys.exit(str(error))
