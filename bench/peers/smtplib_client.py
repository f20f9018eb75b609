"""Python's smtplib with email: the same command line and report as the other clients."""
import json
import resource
import smtplib
import sys
import time
from email.message import EmailMessage
from email.utils import formatdate


def send(option, body):
    message = EmailMessage()
    message["Date"] = formatdate(localtime=True)
    message["From"] = option["--from"]
    message["To"] = option["--to"]
    message["Subject"] = option["--subject"]
    if option.get("--charset") == "sjis":
        message.set_content(body.decode("cp932"), charset="iso-2022-jp", cte="7bit")
    else:
        message.set_content(body.decode("ascii"))
    if option.get("--attach"):
        with open(option["--attach"], "rb") as file:
            message.add_attachment(file.read(), maintype="application", subtype="octet-stream",
                                   filename="attachment.bin")
    with smtplib.SMTP("127.0.0.1", int(option["--port"])) as server:
        server.send_message(message, option["--from"], option["--to"].split(","))


def main():
    option = dict(zip(sys.argv[1::2], sys.argv[2::2]))
    with open(option["--body"], "rb") as file:
        body = file.read()
    for _ in range(int(option.get("--warm", 0))):
        send(option, body)
    before = resource.getrusage(resource.RUSAGE_SELF)
    start = time.perf_counter()
    count = int(option["--count"])
    slowest = 0.0
    for _ in range(count):
        begun = time.perf_counter()
        send(option, body)
        slowest = max(slowest, time.perf_counter() - begun)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_SELF)
    with open("/proc/self/status") as status:
        peak = next(int(line.split()[1]) for line in status if line.startswith("VmHWM:"))
    print(json.dumps({"count": count, "wall_s": wall, "slowest_s": slowest,
                      "user_s": after.ru_utime - before.ru_utime, "sys_s": after.ru_stime - before.ru_stime,
                      "peak_kib": peak}))


main()
