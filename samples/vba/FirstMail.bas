Attribute VB_Name = "FirstMail"
' Sends one HTML mail with a logo and an attachment and says what went wrong where that fails.
'
' Windows: in the editor of Excel, Access or Word import this module and bindings\vba\emailsending.bas, put
' the DLL (x64\emailsending.dll for Office in 64 bits, else that of x86), logo.png and report.txt into one
' folder, write it and the addresses below, and run SendFirstMail.
' Not compiled by those who wrote it: for want of a compiler it was only held against the module.
Option Explicit

Private Const Folder As String = "C:\emailsending"
Private Const Host As String = "mail.example.com"
Private Const Port As Long = 25
Private Const Sender As String = "me@example.com"
Private Const Recipient As String = "you@example.com"
Private Const User As String = ""   ' for a login, with its password
Private Const Password As String = ""

' setLogo and setAttachment have no result: what they are to take is tried before.
Private Function Readable(ByVal path As String) As String
    Dim file As Integer
    file = FreeFile
    Open path For Input As #file
    Close #file
    Readable = path
End Function

Public Sub SendFirstMail()
    On Error GoTo Failed
    ChDrive Folder
    ChDir Folder
    Initialise
    setSmtpHost Host
    setSmtpPort Port
    If Len(User) > 0 Then
        setStartTls True   ' a server without it does not get the password
        setSmtpUser User
        setSmtpPassword Password
    End If
    setFromAddress Sender
    If Not setRecipient(Recipient) Then Err.Raise vbObjectError + 1, , Recipient & " is no address"
    setSubject "Report for " & ChrW$(&H141) & ChrW$(&HF3) & "d" & ChrW$(&H17A) & ": 1200 " & ChrW$(&H20AC)
    setBody "<html><body>{LOGO}<p>" & ChrW$(&H17B) & "aneta, the report is attached.</p></body></html>"
    setLogo Readable("logo.png")   ' always after setBody: it hands the body over
    setAttachment Readable("report.txt")
    If Not szBrisko() Then Err.Raise vbObjectError + 2, , TellingLine(getLastError())
    Exit Sub
Failed:
    MsgBox Err.Description, vbExclamation
End Sub
