' Listens to the event codes of an object of its own, and refuses code 2.
'
'     cscript //nologo events.vbs 1 2 3            raises these codes

Option Explicit
Dim agent, code
Set agent = WScript.CreateObject("HOLVAgentLib.HOLVAgentLib", "Agent_")

Sub Agent_HOLVAgentEventChanged(newValue, cancel)
    WScript.Echo "event code " & newValue
    If newValue = 2 Then cancel = True
End Sub

For Each code In WScript.Arguments
    agent.NeverSleepEventCode = CLng(code)
    WScript.Echo "the current code is " & agent.NeverSleepEventCode
Next
