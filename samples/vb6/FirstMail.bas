Attribute VB_Name = "FirstMail"
' Sends one HTML mail with a logo and an attachment and says what went wrong where that fails.
'
' Windows: a "Standard EXE" of this module and bindings\vb6\emailsending.bas, without a form, with Sub
' Main to start with; made into the folder "samples", where logo.png and report.txt lie, with
' x86\emailsending.dll beside it. USER PASSWORD may follow for a login.
'     FirstMail mail.example.com 25 me@example.com you@example.com
' Not compiled by those who wrote it: for want of a compiler it was only held against the module.
Option Explicit

' setLogo and setAttachment have no result: what they are to take is tried before.
Private Function Readable(ByVal path As String) As String
    Dim file As Integer
    file = FreeFile
    Open path For Input As #file
    Close #file
    Readable = path
End Function

Public Sub Main()
    Dim args() As String
    args = Split(Command$, " ")
    If UBound(args) <> 3 And UBound(args) <> 5 Then
        MsgBox "FirstMail HOST PORT FROM TO [USER PASSWORD]"
        Exit Sub
    End If
    On Error GoTo Failed
    Initialise
    setSmtpHost args(0)
    setSmtpPort CLng(args(1))
    If UBound(args) = 5 Then
        setStartTls True   ' a server without it does not get the password
        setSmtpUser args(4)
        setSmtpPassword args(5)
    End If
    setFromAddress args(2)
    If Not setRecipient(args(3)) Then Err.Raise vbObjectError + 1, , args(3) & " is no address"
    setSubject "Report for " & ChrW$(&H141) & ChrW$(&HF3) & "d" & ChrW$(&H17A) & ": 1200 " & ChrW$(&H20AC)
    setBody "<html><body>{LOGO}<p>" & ChrW$(&H17B) & "aneta, the report is attached.</p></body></html>"
    setLogo Readable("logo.png")   ' always after setBody: it hands the body over
    setAttachment Readable("report.txt")
    If Not szBrisko() Then Err.Raise vbObjectError + 2, , TellingLine(getLastError())
    Exit Sub
Failed:
    MsgBox Err.Description, vbExclamation
End Sub
