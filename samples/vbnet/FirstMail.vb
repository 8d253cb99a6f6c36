' Sends one HTML mail with a logo and an attachment and says what went wrong where that fails.
'
' In the folder "samples", where logo.png and report.txt lie; USER PASSWORD may follow for a login.
'
' Windows (x64 for x86 in all lines: 64 bits), the compiler of .NET Framework or Visual Studio:
'     vbc /codepage:65001 /platform:x86 /out:FirstMail.exe vbnet\FirstMail.vb ..\bindings\vbnet\EmailSending.vb
'     copy ..\x86\emailsending.dll .
'     FirstMail mail.example.com 25 me@example.com you@example.com
' Not compiled by those who wrote it: for want of a compiler it was only held against the module.
Option Explicit On
Option Strict On

Imports System
Imports System.IO
Imports EmailSending

Module FirstMail

    ' setLogo and setAttachment have no result: what they are to take is tried before.
    Private Function Readable(ByVal path As String) As String
        Using file As FileStream = System.IO.File.OpenRead(path)
            file.ReadByte()
        End Using
        Return path
    End Function

    Private Sub Send(ByVal args As String())
        Email.Initialise()
        Email.setSmtpHost(args(0))
        Email.setSmtpPort(Integer.Parse(args(1)))
        If args.Length = 6 Then
            Email.setStartTls(True)  ' a server without it does not get the password
            Email.setSmtpUser(args(4))
            Email.setSmtpPassword(args(5))
        End If
        Email.setFromAddress(args(2))
        If Not Email.setRecipient(args(3)) Then Throw New ArgumentException(args(3) & " is no address")
        Email.setSubject("Report for Łódź: 1200 €")
        Email.setBody("<html><body>{LOGO}<p>Żaneta, the report is attached.</p></body></html>")
        Email.setLogo(Readable("logo.png"))  ' always after setBody: it hands the body over
        Email.setAttachment(Readable("report.txt"))
        Email.sendOrThrow()
    End Sub

    Function Main(ByVal args As String()) As Integer
        If args.Length <> 4 AndAlso args.Length <> 6 Then
            Console.Error.WriteLine("FirstMail HOST PORT FROM TO [USER PASSWORD]")
            Return 1
        End If
        Try
            Send(args)
            Return 0
        Catch failure As Exception
            If TypeOf failure Is DllNotFoundException OrElse TypeOf failure Is BadImageFormatException Then
                Console.Error.Write("The library is not there, or not as wide as this program: ")
            End If
            Console.Error.WriteLine(failure.Message)
            Return 1
        End Try
    End Function

End Module
