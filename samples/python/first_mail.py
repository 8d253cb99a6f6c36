r"""Sends one HTML mail with a logo and an attachment and says what went wrong where that fails.

In the folder "samples", where logo.png and report.txt lie; USER PASSWORD may follow for a login.

Linux:
    LD_LIBRARY_PATH=../lib PYTHONPATH=../bindings/python python3 python/first_mail.py mail.example.com 25 me@example.com you@example.com
Windows (a 32-bit Python takes x86):
    copy ..\x64\emailsending.dll ..\bindings\python
    set PYTHONPATH=..\bindings\python
    py python\first_mail.py mail.example.com 25 me@example.com you@example.com
"""
import pathlib
import sys

from emailsending import EmailSending, SendError


def readable(path):
    """setLogo and setAttachment have no result: what they are to take is tried before."""
    with open(path, "rb") as file:
        file.read(1)
    return path


def send(host, port, sender, recipient, user=None, password=None):
    mail = EmailSending()
    mail.Initialise()
    mail.setSmtpHost(host)
    mail.setSmtpPort(int(port))
    if user:
        mail.setStartTls(True)  # a server without it does not get the password
        mail.setSmtpUser(user)
        mail.setSmtpPassword(password)
    mail.setFromAddress(sender)
    if not mail.setRecipient(recipient):
        raise ValueError(f"{recipient} is no address")
    mail.setSubject("Report for Łódź: 1200 €")
    mail.setBody("<html><body>{LOGO}<p>Żaneta, the report is attached.</p></body></html>")
    mail.setLogo(readable("logo.png"))  # always after setBody: it hands the body over
    mail.setAttachment(readable("report.txt"))
    mail.send()


if len(sys.argv) not in (5, 7):
    sys.exit("first_mail.py HOST PORT FROM TO [USER PASSWORD]")
try:
    send(*sys.argv[1:])
except (OSError, ValueError, SendError) as error:
    sys.exit(str(error))
