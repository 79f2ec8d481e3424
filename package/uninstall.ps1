# Removes Holv: restores what is the user's, then removes the service, its registration and the programs. With
# -Purge also the settings, the log and the event source. Usage, elevated:
#   powershell -ExecutionPolicy Bypass -File uninstall.ps1 [-Purge] [-Folder PATH] [-Seconds N]
# Exit codes: 0 done; 2 not elevated; 3 the service did not stop, and nothing was changed; 5 the switch
# -UnregServer failed or did not end; 7 done, but not all could be restored, so that the settings' key stays.
param(
    [switch]$Purge,
    [string]$Folder = (Join-Path $env:ProgramFiles 'Orbeq\Holv'),
    [int]$Seconds = 60
)
$ErrorActionPreference = 'Stop'
$service = 'HOLVService'

$user = New-Object Security.Principal.WindowsPrincipal ([Security.Principal.WindowsIdentity]::GetCurrent())
if (-not $user.IsInRole([Security.Principal.WindowsBuiltInRole]::Administrator)) {
    Write-Output 'Run this from an elevated prompt.'
    exit 2
}

# Runs a program of the folder, and ends it when the time is up: a message box that nobody closes.
function Invoke-Program([string]$program, [string]$argument) {
    try {
        $process = Start-Process (Join-Path $Folder $program) $argument -WindowStyle Hidden -PassThru
    } catch {
        return -1
    }
    $null = $process.Handle  # keeps the exit code readable
    if (-not $process.WaitForExit($Seconds * 1000)) {
        $process.Kill()
        return -1
    }
    return $process.ExitCode
}

$found = Get-Service $service -ErrorAction SilentlyContinue
if ($found) {
    Stop-Service $service -Force -ErrorAction SilentlyContinue
    try {
        $found.WaitForStatus('Stopped', [TimeSpan]::FromSeconds($Seconds))
    } catch {
        Write-Output "$service does not stop."
        exit 3
    }
}

$restored = $true
if (Test-Path (Join-Path $Folder 'holvctl.exe')) {
    $restored = (Invoke-Program 'holvctl.exe' 'restore') -eq 0
}
if (Test-Path (Join-Path $Folder 'HOLVService.exe')) {
    $code = Invoke-Program 'HOLVService.exe' '-UnregServer'
    if ($code -ne 0) {
        Write-Output "HOLVService.exe -UnregServer ended with $code."
        exit 5
    }
}
foreach ($program in 'HOLVService.exe', 'holvctl.exe') {
    Remove-Item (Join-Path $Folder $program) -Force -ErrorAction SilentlyContinue
}

if ($Purge) {
    if ($restored) { Remove-Item 'HKLM:\Software\Orbeq\Holv' -Recurse -Force -ErrorAction SilentlyContinue }
    Remove-Item 'HKLM:\SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV' -Recurse -Force `
        -ErrorAction SilentlyContinue
    # By cmd: it removes a link or junction itself, and nothing behind it.
    $data = Join-Path $env:ProgramData 'Orbeq\Holv'
    if (Test-Path $data) { & cmd.exe /d /c "rmdir /s /q `"$data`"" }
}
if (-not $restored) {
    Write-Output 'Not all could be restored.'
    exit 7
}
Write-Output "$service is removed."
exit 0
