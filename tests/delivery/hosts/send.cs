// send.exe PORT RECIPIENT: sends a message by the C# class and prints "sent", or why not.
using System;
using EmailSending;

static class Host
{
    static void Main(string[] arguments)
    {
        Email.Initialise();
        Email.setSmtpHost("127.0.0.1");
        Email.setSmtpPort(int.Parse(arguments[0]));
        Email.setFromAddress("Łukasz <me@example.test>");
        Email.setRecipient(arguments[1]);
        Email.setSubject("Łódź: 1200 €");
        Email.setBody("<p>ő</p>");
        Email.setLogo(null);
        Email.setAttachment("ő €.txt");
        try
        {
            Email.sendOrThrow();
            Console.WriteLine("sent");
        }
        catch (SendException error)
        {
            Console.WriteLine(error.Message);
        }
    }
}
