"""send.py PORT RECIPIENT: sends a message by the Python module and prints "sent", or why not."""
import pathlib
import sys

from emailsending import EmailSending, SendError

mail = EmailSending()
mail.Initialise()
mail.setSmtpHost("127.0.0.1")
mail.setSmtpPort(int(sys.argv[1]))
mail.setFromAddress("Łukasz <me@example.test>")
mail.setRecipient(sys.argv[2])
mail.setSubject("Łódź: 1200 €")
mail.setBody("<p>ő</p>")
mail.setLogo("")
mail.setAttachment(pathlib.Path("ő €.txt"))
try:
    mail.send()
    print("sent")
except SendError as error:
    print(error)
