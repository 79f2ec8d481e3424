# Shows and changes the settings of the Holv service through its control interface.
#
#     .\holv.ps1                                   the status
#     .\holv.ps1 -Feature 1 -Value 1               switches a feature, by its number
#     .\holv.ps1 -Start 22:00 -End 06:00           sets the do-not-disturb interval
#     .\holv.ps1 -Raise 1                          raises an event code, and shows the events received

param(
    [int]$Feature = -1,
    [int]$Value = 1,
    [timespan]$Start,
    [timespan]$End,
    [Nullable[int]]$Raise
)

$agent = New-Object -ComObject HOLVAgentLib.HOLVAgentLib

if ($Feature -ge 0) { $agent.SetNeverSleepParam($Feature, $Value) }
if ($PSBoundParameters.ContainsKey('Start') -and $PSBoundParameters.ContainsKey('End')) {
    $agent.SetDoNotDisturbTimeInterval([uint32]$Start.TotalMinutes, [uint32]$End.TotalMinutes)
}
if ($null -ne $Raise) {
    # The interface of the events and its one member, number 1.
    $events = [guid]'5B0E8D34-A7C2-4E91-8F36-D1A94C27B650'
    $heard = [Action[int, bool]] { param($code) Write-Host "heard event code $code" }
    [Runtime.InteropServices.ComEventsHelper]::Combine($agent, $events, 1, $heard)
    $agent.NeverSleepEventCode = $Raise
    [void][Runtime.InteropServices.ComEventsHelper]::Remove($agent, $events, 1, $heard)
}

$names = 'never-sleep mode', 'speakers are muted', 'do not disturb', 'app suspend',
    'Lync is installed', 'display on Lync', 'sleep in do-not-disturb hours',
    'never-sleep on battery', 'has a battery'
for ($i = 0; $i -lt $names.Count; $i++) {
    [int]$current = 0
    $agent.GetNeverSleepParam($i, [ref]$current)
    "$i $($names[$i]): $current"
}
[uint32]$from = 0
[uint32]$to = 0
$agent.GetDoNotDisturbTimeInterval([ref]$from, [ref]$to)
'do not disturb from {0:d2}:{1:d2} to {2:d2}:{3:d2}' -f
    [int][math]::Floor($from / 60), ($from % 60), [int][math]::Floor($to / 60), ($to % 60)
"event code $($agent.NeverSleepEventCode)"
[void][Runtime.InteropServices.Marshal]::ReleaseComObject($agent)
