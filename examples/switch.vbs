' Switches the Holv service's features through its control interface. VBScript cannot receive
' numbers through arguments; holv.ps1 and holvctl read the features.
'
'     cscript //nologo switch.vbs set 1 1          switches a feature, by its number
'     cscript //nologo switch.vbs interval 1320 360
'     cscript //nologo switch.vbs event 1          raises an event code, and shows the current one

Option Explicit
Dim agent, arguments
Set arguments = WScript.Arguments
If arguments.Count < 2 Then Usage
Set agent = CreateObject("HOLVAgentLib.HOLVAgentLib")

If arguments(0) = "set" And arguments.Count = 3 Then
    agent.SetNeverSleepParam CLng(arguments(1)), CLng(arguments(2))
    WScript.Echo "feature " & arguments(1) & " is switched to " & arguments(2)
ElseIf arguments(0) = "interval" And arguments.Count = 3 Then
    agent.SetDoNotDisturbTimeInterval CLng(arguments(1)), CLng(arguments(2))
    WScript.Echo "do not disturb from minute " & arguments(1) & " to " & arguments(2)
ElseIf arguments(0) = "event" And arguments.Count = 2 Then
    agent.NeverSleepEventCode = CLng(arguments(1))
    WScript.Echo "event code " & agent.NeverSleepEventCode
Else
    Usage
End If

Sub Usage
    WScript.Echo "set FEATURE VALUE | interval START END | event CODE"
    WScript.Quit 2
End Sub
