// Calls every function of the Pascal unit.
{$MODE DELPHI}{$CODEPAGE UTF8}
program call;

uses
  cwstring, emailsending;

begin
  // CALLS
  WriteLn(LastErrorText);
end.
