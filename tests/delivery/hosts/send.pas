// send PORT RECIPIENT: sends a message by the Pascal unit and prints "sent", or why not.
{$MODE DELPHI}{$CODEPAGE UTF8}
program send;

uses
  cwstring, SysUtils, emailsending;

begin
  Initialise;
  setSmtpHost('127.0.0.1');
  setSmtpPort(StrToInt(ParamStr(1)));
  setFromAddress('Łukasz <me@example.test>');
  setRecipient(ParamStr(2));
  setSubject('Łódź: 1200 €');
  setBody('<p>ő</p>');
  setLogo('');
  setAttachment('ő €.txt');
  if szBrisko then
    WriteLn('sent')
  else
    WriteLn(TellingLine(LastErrorText));
end.
