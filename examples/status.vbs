' Shows what the Holv service is set to, through its control interface.
'
'     cscript //nologo status.vbs
'     cscript //nologo status.vbs set 1 1          switches a feature, by its number
'     cscript //nologo status.vbs interval 1320 360

Option Explicit
Dim agent, names, feature, value, version
Set agent = CreateObject("HOLVAgentLib.HOLVAgentLib")

If WScript.Arguments.Count = 3 Then
    If WScript.Arguments(0) = "set" Then
        agent.SetNeverSleepParam CLng(WScript.Arguments(1)), CLng(WScript.Arguments(2))
    ElseIf WScript.Arguments(0) = "interval" Then
        agent.SetDoNotDisturbTimeInterval CLng(WScript.Arguments(1)), CLng(WScript.Arguments(2))
    End If
End If

' What comes back through an argument must have the argument's type beforehand.
version = ""
agent.GetNeverSleepApiVersion version
WScript.Echo "interface " & version

names = Array("never-sleep mode", "speakers are muted", "do not disturb", "app suspend", _
              "Lync is installed", "display on Lync", "sleep in do-not-disturb hours", _
              "never-sleep on battery", "has a battery")
For feature = 0 To UBound(names)
    value = CLng(0)
    agent.GetNeverSleepParam feature, value
    WScript.Echo feature & " " & names(feature) & ": " & value
Next
WScript.Echo "event code " & agent.NeverSleepEventCode
