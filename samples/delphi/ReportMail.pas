(*
 * For a program with windows, or a service: one function that sends an HTML mail with a logo and an
 * attachment and says what went wrong where that fails.
 *
 * Windows: add this unit and bindings\pascal\emailsending.pas to the project, put emailsending.dll (x86 or
 * x64, as the target) beside the program, and call SendReport, in a thread of its own where windows are
 * not to wait for a server:
 *     cause := SendReport('mail.example.com', 25, 'me@example.com', 'you@example.com', folder);
 *     if cause <> '' then ShowMessage(cause);
 * Those who wrote it compiled it by Free Pascal in its Delphi mode, for want of Delphi. A program for the
 * command line that both compile is pascal\first_mail.pas.
 *)
unit ReportMail;

{$IFDEF FPC}{$MODE DELPHIUNICODE}{$ENDIF}

interface

// Sends folder's report.txt under its logo.png. Returns the line for a user, '' where all went well. With a
// user it logs in, and not without encryption. One call at a time: there is one message.
function SendReport(const host: string; port: Integer; const sender, recipient, folder: string;
  const user: string = ''; const password: string = ''): string;

implementation

uses
  SysUtils, Classes, emailsending;

// setLogo and setAttachment have no result: what they are to take is tried before.
function Readable(const path: string): string;
begin
  TFileStream.Create(path, fmOpenRead or fmShareDenyWrite).Free;
  Result := path;
end;

function SendReport(const host: string; port: Integer; const sender, recipient, folder: string;
  const user: string = ''; const password: string = ''): string;
begin
  Result := '';
  try
    Initialise;
    setSmtpHost(AnsiString(host));
    setSmtpPort(port);
    if user <> '' then
    begin
      setStartTls(True);  // a server without it does not get the password
      setSmtpUser(AnsiString(user));
      setSmtpPassword(AnsiString(password));
    end;
    setFromAddress(UTF8String(sender));
    if not setRecipient(UTF8String(recipient)) then
      raise Exception.Create(recipient + ' is no address');
    setSubject('Report for '#$0141#$00F3'd'#$017A': 1200 '#$20AC);
    setBody('<html><body>{LOGO}<p>'#$017B'aneta, the report is attached.</p></body></html>');
    setLogo(UTF8String(Readable(IncludeTrailingPathDelimiter(folder) + 'logo.png')));  // always after setBody
    setAttachment(UTF8String(Readable(IncludeTrailingPathDelimiter(folder) + 'report.txt')));
    if not szBrisko then Result := TellingLine(LastErrorText);
  except
    on error: Exception do Result := error.Message;
  end;
end;

end.
