/*
 * Sends one HTML mail with a logo and an attachment and says what went wrong where that fails.
 *
 * In the folder "samples", where logo.png and report.txt lie; USER PASSWORD may follow for a login.
 *
 * Linux (Debian: mono-mcs, mono-runtime):
 *     mcs -out:FirstMail.exe csharp/FirstMail.cs ../bindings/csharp/EmailSending.cs
 *     LD_LIBRARY_PATH=../lib mono FirstMail.exe mail.example.com 25 me@example.com you@example.com
 * Windows (x64 for x86 in all lines: 64 bits), the compiler of .NET Framework or Visual Studio:
 *     csc /codepage:65001 /platform:x86 /out:FirstMail.exe csharp\FirstMail.cs ..\bindings\csharp\EmailSending.cs
 *     copy ..\x86\emailsending.dll .
 *     FirstMail mail.example.com 25 me@example.com you@example.com
 */
using System;
using System.IO;
using EmailSending;

static class FirstMail
{
    // setLogo and setAttachment have no result: what they are to take is tried before.
    static string Readable(string path)
    {
        using (FileStream file = File.OpenRead(path)) file.ReadByte();
        return path;
    }

    static void Send(string[] args)
    {
        Email.Initialise();
        Email.setSmtpHost(args[0]);
        Email.setSmtpPort(int.Parse(args[1]));
        if (args.Length == 6)
        {
            Email.setStartTls(true);  // a server without it does not get the password
            Email.setSmtpUser(args[4]);
            Email.setSmtpPassword(args[5]);
        }
        Email.setFromAddress(args[2]);
        if (!Email.setRecipient(args[3])) throw new ArgumentException(args[3] + " is no address");
        Email.setSubject("Report for Łódź: 1200 €");
        Email.setBody("<html><body>{LOGO}<p>Żaneta, the report is attached.</p></body></html>");
        Email.setLogo(Readable("logo.png"));  // always after setBody: it hands the body over
        Email.setAttachment(Readable("report.txt"));
        Email.sendOrThrow();
    }

    static int Main(string[] args)
    {
        if (args.Length != 4 && args.Length != 6)
        {
            Console.Error.WriteLine("FirstMail HOST PORT FROM TO [USER PASSWORD]");
            return 1;
        }
        try
        {
            Send(args);
            return 0;
        }
        catch (Exception error)
        {
            if (error is DllNotFoundException || error is BadImageFormatException)
                Console.Error.Write("The library is not there, or not as wide as this program: ");
            Console.Error.WriteLine(error.Message);
            return 1;
        }
    }
}
