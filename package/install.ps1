# Installs Holv from this folder, over an older installation as well, and starts it. For administrators
# without the Windows Installer package. Usage, elevated:
#   powershell -ExecutionPolicy Bypass -File install.ps1 [-Folder PATH] [-Seconds N]
# Exit codes: 0 done; 2 not elevated; 3 the service did not stop, and nothing was changed; 4 a file could not be
# copied; 5 the switch -Service failed or did not end; 6 the service does not start. After 4, 5 and 6 the
# files and the service of before are back, where there were any.
param(
    [string]$Folder = (Join-Path $env:ProgramFiles 'Orbeq\Holv'),
    [int]$Seconds = 60
)
$ErrorActionPreference = 'Stop'
$service = 'HOLVService'
$programs = 'HOLVService.exe', 'holvctl.exe'
$here = Split-Path $MyInvocation.MyCommand.Path

$user = New-Object Security.Principal.WindowsPrincipal ([Security.Principal.WindowsIdentity]::GetCurrent())
if (-not $user.IsInRole([Security.Principal.WindowsBuiltInRole]::Administrator)) {
    Write-Output 'Run this from an elevated prompt.'
    exit 2
}

# Waits until the service is in the state, or gone. False when the time is up. The program ends a little after its
# service has stopped, and cannot be replaced before.
function Wait-Service([string]$state) {
    for ($i = 0; $i -lt $Seconds * 2; $i++) {
        $found = Get-Service $service -ErrorAction SilentlyContinue
        $ends = $state -eq 'Stopped' -and (Get-Process $service -ErrorAction SilentlyContinue)
        if (-not $ends -and (-not $found -or $found.Status -eq $state)) { return $true }
        Start-Sleep -Milliseconds 500
    }
    return $false
}

# Runs the switch. When it shows a message box, nobody is there to close it, so that it is ended when
# the time is up.
function Invoke-Switch([string]$argument) {
    try {
        $process = Start-Process (Join-Path $Folder 'HOLVService.exe') $argument -WindowStyle Hidden -PassThru
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

function Start-Holv {
    Start-Service $service -ErrorAction SilentlyContinue
    $found = Get-Service $service -ErrorAction SilentlyContinue
    return $found -and (Wait-Service 'Running')
}

$before = Get-Service $service -ErrorAction SilentlyContinue
if ($before) {
    Stop-Service $service -Force -ErrorAction SilentlyContinue
    if (-not (Wait-Service 'Stopped')) {
        Write-Output "$service does not stop."
        exit 3
    }
}

$old = Join-Path ([IO.Path]::GetTempPath()) ('Holv-' + [Guid]::NewGuid())
# Puts back what was there and ends with the code.
function Undo([int]$code, [string]$why) {
    Write-Output $why
    Stop-Service $service -Force -ErrorAction SilentlyContinue
    $null = Wait-Service 'Stopped'
    if (-not $before -and (Test-Path (Join-Path $Folder 'HOLVService.exe'))) {
        $null = Invoke-Switch '-UnregServer'
    }
    foreach ($program in $programs) {
        $kept = Join-Path $old $program
        if (Test-Path $kept) {
            Copy-Item $kept $Folder -Force -ErrorAction SilentlyContinue
        } else {
            Remove-Item (Join-Path $Folder $program) -Force -ErrorAction SilentlyContinue
        }
    }
    if ($before) {
        if (-not (Get-Service $service -ErrorAction SilentlyContinue)) { $null = Invoke-Switch '-Service' }
        $null = Start-Holv
    }
    Remove-Item $old -Recurse -Force -ErrorAction SilentlyContinue
    exit $code
}

try {
    $null = New-Item $old -ItemType Directory -Force
    $null = New-Item $Folder -ItemType Directory -Force
    foreach ($program in $programs) {
        $there = Join-Path $Folder $program
        if (Test-Path $there) { Copy-Item $there $old }
        Copy-Item (Join-Path $here $program) $Folder -Force
    }
} catch {
    Undo 4 "A file could not be copied: $_"
}

# Before the first start: administrators own both folders; in the log's the system and administrators write, and
# users read. A link or junction in their place is removed, and what it leads to left alone. A log's folder that
# belongs to a user, who may keep it open, is put aside. A user who has made the folder above has all rights in
# it: they go with the ownership.
$trusted = 'S-1-5-18', 'S-1-5-32-544', 'S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464'
$data = Join-Path $env:ProgramData 'Orbeq\Holv'
$parent = Split-Path $data
function Test-Trusted([string]$place) {
    $trusted -contains (Get-Acl $place).GetOwner([Security.Principal.SecurityIdentifier]).Value
}
foreach ($place in $parent, $data) {
    $there = Get-Item $place -Force -ErrorAction SilentlyContinue
    if ($there -and ($there.Attributes -band [IO.FileAttributes]::ReparsePoint)) {
        & cmd.exe /d /c "rmdir `"$place`""
    } elseif ($there -and $place -eq $data -and -not (Test-Trusted $place)) {
        Rename-Item $place ('Holv.' + [Guid]::NewGuid()) -ErrorAction SilentlyContinue
        if (Test-Path $place) { Write-Output "Warning: a user has $place open. No log is written there." }
    }
    $null = New-Item $place -ItemType Directory -Force
}
$made_by_user = -not (Test-Trusted $parent)
$null = & icacls.exe $parent /setowner '*S-1-5-32-544' /q
if ($made_by_user) { $null = & icacls.exe $parent /reset /q }
if (Test-Trusted $data) {
    $null = & icacls.exe $data /setowner '*S-1-5-32-544' /q
    $null = & icacls.exe $data /reset /q
    $null = & icacls.exe $data /inheritance:r /grant:r '*S-1-5-18:(OI)(CI)F' '*S-1-5-32-544:(OI)(CI)F' `
        '*S-1-5-32-545:(OI)(CI)RX' /q
}

# Everyone, signed-in users and users, by their identifiers: who of them may write could be the system.
$users = 'S-1-1-0', 'S-1-5-11', 'S-1-5-32-545'
foreach ($rule in (Get-Acl $Folder).GetAccessRules($true, $true, [Security.Principal.SecurityIdentifier])) {
    if ($rule.AccessControlType -eq 'Allow' -and $users -contains $rule.IdentityReference.Value -and
        ($rule.FileSystemRights -band [Security.AccessControl.FileSystemRights]::WriteData)) {
        Write-Output "Warning: users can write to $Folder, and so become the local system."
        break
    }
}

$code = Invoke-Switch '-Service'
if ($code -ne 0) { Undo 5 "HOLVService.exe -Service ended with $code." }
if (-not (Start-Holv)) { Undo 6 "$service does not start. The event log says why." }
Remove-Item $old -Recurse -Force -ErrorAction SilentlyContinue
Write-Output "$service is installed in $Folder and runs."
exit 0
