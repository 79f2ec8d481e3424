' Switches the Holv service's features through its control interface. A script host has no places for
' what comes back through arguments, so the features themselves are read by holv.ps1 and holv_client.
'
'     cscript //nologo switch.vbs                  the event code
'     cscript //nologo switch.vbs set 1 1          switches a feature, by its number
'     cscript //nologo switch.vbs interval 1320 360

Option Explicit
Dim agent
Set agent = CreateObject("HOLVAgentLib.HOLVAgentLib")

If WScript.Arguments.Count = 3 Then
    If WScript.Arguments(0) = "set" Then
        agent.SetNeverSleepParam CLng(WScript.Arguments(1)), CLng(WScript.Arguments(2))
    ElseIf WScript.Arguments(0) = "interval" Then
        agent.SetDoNotDisturbTimeInterval CLng(WScript.Arguments(1)), CLng(WScript.Arguments(2))
    End If
End If
WScript.Echo "event code " & agent.NeverSleepEventCode
