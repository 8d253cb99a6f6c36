(*
 * Sends one HTML mail with a logo and an attachment and says what went wrong where that fails.
 *
 * In the folder "samples", where logo.png and report.txt lie; USER PASSWORD may follow for a login.
 *
 * Linux:
 *     fpc -Fu../bindings/pascal -Fl../lib -FE. pascal/first_mail.pas
 *     LD_LIBRARY_PATH=../lib ./first_mail mail.example.com 25 me@example.com you@example.com
 * Windows (x64 for x86 in all lines: 64 bits), Free Pascal or Delphi (dcc64; no -NSSystem before XE2):
 *     fpc -Fu..\bindings\pascal -FE. pascal\first_mail.pas
 *     dcc32 --codepage:65001 -NSSystem -U..\bindings\pascal -E. pascal\first_mail.pas
 *     copy ..\x86\emailsending.dll .
 *     first_mail mail.example.com 25 me@example.com you@example.com
 *)
program first_mail;

{$APPTYPE CONSOLE}
{$IFDEF FPC}{$MODE DELPHIUNICODE}{$CODEPAGE UTF8}{$ENDIF}

uses
  {$IFDEF UNIX}cwstring,{$ENDIF} SysUtils, Classes, emailsending;

// setLogo and setAttachment have no result: what they are to take is tried before.
function Readable(const path: string): string;
begin
  TFileStream.Create(path, fmOpenRead or fmShareDenyWrite).Free;
  Result := path;
end;

procedure Send;
begin
  Initialise;
  setSmtpHost(ParamStr(1));
  setSmtpPort(StrToInt(ParamStr(2)));
  if ParamCount = 6 then
  begin
    setStartTls(True);  // a server without it does not get the password
    setSmtpUser(ParamStr(5));
    setSmtpPassword(ParamStr(6));
  end;
  setFromAddress(ParamStr(3));
  if not setRecipient(ParamStr(4)) then
    raise Exception.Create(ParamStr(4) + ' is no address');
  setSubject('Report for Łódź: 1200 €');
  setBody('<html><body>{LOGO}<p>Żaneta, the report is attached.</p></body></html>');
  setLogo(Readable('logo.png'));  // always after setBody: it hands the body over
  setAttachment(Readable('report.txt'));
  if not szBrisko then
    raise Exception.Create(TellingLine(LastErrorText));
end;

begin
  if (ParamCount <> 4) and (ParamCount <> 6) then
  begin
    WriteLn(ErrOutput, 'first_mail HOST PORT FROM TO [USER PASSWORD]');
    Halt(1);
  end;
  try
    Send;
  except
    on error: Exception do
    begin
      WriteLn(ErrOutput, error.Message);
      Halt(1);
    end;
  end;
end.
