# Calls every function of the Python module.
import emailsending

mail = emailsending.EmailSending()
# CALLS
print(mail.getLastError())
