#!/usr/bin/env bash
# Installs, upgrades and removes the Windows Installer package under Wine, in a prefix of its own, and
# compares what it leaves with what the switches leave. Usage: tools/wine_msi_check.sh BUILD_FOLDER
set -euo pipefail
build=$(realpath "$1")
cd "$(dirname "${BASH_SOURCE[0]}")/.."

export WINEPREFIX=$PWD/build/wine_msi WINEARCH=win64 WINEDEBUG=-all
export WINEDLLOVERRIDES='powrprof=n,b;mscoree,mshtml,winealsa.drv='
export SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
unset DISPLAY
source tools/wine_programs.sh
# No trace is wanted here, but what Wine says where it fails.
traced=-all trace=$PWD/build/wine_msi_said.txt declared=none
trap end_wine EXIT
patience=90

passed=0
failed=0
check() {
    if [ "$2" = "$3" ]; then
        passed=$((passed + 1))
        echo "ok: $1"
    else
        failed=$((failed + 1))
        printf 'FAILED: %s\n  expected: %s\n  was:      %s\n' "$1" "$2" "$3"
    fi
}

windows_path='C:\Program Files\Orbeq\Holv\HOLVService.exe'
installed="$WINEPREFIX/drive_c/Program Files/Orbeq/Holv"
data=$WINEPREFIX/drive_c/ProgramData/Orbeq/Holv
holv_key='HKLM\Software\Orbeq\Holv'
source_key='HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV'
classes='HKLM\Software\Classes'

# msi ARGUMENT...: the exit code of a silent run of the installer.
msi() {
    local code=0
    patience=300 run_wine msiexec "$@" /qn "/l*v" "C:\\msi.log" >/dev/null 2>&1 || code=$?
    echo "$code"
}

# what_is_registered: every key and value of the service's, as text. Without the quotes around the
# service's program, which Windows' installer writes and Wine's does not, and without what a service
# that runs writes down.
what_is_registered() {
    local key
    for key in 'HKLM\SYSTEM\CurrentControlSet\Services\HOLVService' "$source_key" "$holv_key" \
        "$classes\\AppID\\{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}" "$classes\\AppID\\HOLVService.EXE" \
        "$classes\\CLSID\\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}" "$classes\\HOLVAgentLib.HOLVAgentLib" \
        "$classes\\HOLVAgentLib.HOLVAgentLib.1" "$classes\\TypeLib\\{C4D72A19-3B8E-4F05-9A61-E2B7D048F1C3}" \
        "$classes\\Interface\\{9D4E2C71-5A8B-4F3E-B0C6-73E1A2D94F58}" \
        "$classes\\Interface\\{5B0E8D34-A7C2-4E91-8F36-D1A94C27B650}" \
        "$classes\\Wow6432Node\\Interface\\{9D4E2C71-5A8B-4F3E-B0C6-73E1A2D94F58}" \
        "$classes\\Wow6432Node\\Interface\\{5B0E8D34-A7C2-4E91-8F36-D1A94C27B650}"; do
        if [ "$(key_is "$key")" = there ]; then ask_registry "$key" /s || true; else echo "$key is gone"; fi
    done | awk '/^HK/ { keep = !/Holv.(Restore|State)$/ } keep && NF { if (/^ +ImagePath/) gsub("\"", ""); print }'
}
differences() { diff <(echo "$1") <(echo "$2") || true; }
# The program's files; the stand-ins for Wine's power library keep lists of their calls beside them.
files() { (cd "$installed" 2>/dev/null && find . -type f ! -name "pow*.log" | sed 's/^..//' | sort | tr '\n' ' '); }
product_files="HOLVService.exe administration.md defaults.reg events.md examples/holv.ps1 examples/switch.vbs holv.spdx.json holvctl.exe policies/Holv.admx policies/en-US/Holv.adml policy_refresh.xml "

end_wine
if [ "$(cat "$WINEPREFIX/.made" 2>/dev/null)" != 1 ]; then
    echo "Making a Wine prefix (build/wine_msi)"
    make_prefix
    echo 1 >"$WINEPREFIX/.made"
fi
start_wine

# The package with the program for this machine's processor, and one of a later version.
work=$build/msi_check
rm -rf "$work"
mkdir -p "$work"
(cd "$work" && cmake -E tar xf "$build"/packages/Holv-*-x64.zip)
mv "$work"/Holv-*-x64 "$work/files"
cp "$build/wine/HOLVService.exe" "$work/files"
installer/make_msi "$work/files" 1.1.70.537 "$work/first.msi"
installer/make_msi "$work/files" 1.1.71.1 "$work/second.msi"
cp "$build"/wine/{powrprof,power_requests}.dll "$WINEPREFIX/drive_c/windows/system32/"

first=$(winepath -w "$work/first.msi")
second=$(winepath -w "$work/second.msi")

# From nothing.
msi /x "$second" >/dev/null
msi /x "$first" >/dev/null
for key_name in "$holv_key" "$source_key"; do
    if [ "$(key_is "$key_name")" = there ]; then wine_does reg delete "$key_name" /f >/dev/null; fi
done
rm -rf "$installed" "$data"

# What the switches leave.
mkdir -p "$installed"
cp "$work"/files/*.exe "$installed"
check "the switch for installation leaves with exit code 0" 0 "$(run_switch -Service)"
by_switch=$(what_is_registered)
check "the switch for removal leaves with exit code 0" 0 "$(run_switch -UnregServer)"
after_switch=$(what_is_registered)
rm -rf "$installed" "$data"
wine_does reg delete "$holv_key" /f >/dev/null
wine_does reg delete "$source_key" /f >/dev/null

check "the package installs silently" 0 "$(msi /i "$first")"
check "the service runs" RUNNING "$(service_state)"
check "the registry is the one that the switch leaves" "" "$(differences "$by_switch" "$(what_is_registered)")"
check "the files have their places" "$product_files" "$(files)"

app_id_key="$classes\\AppID\\{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}"
add_value "$holv_key\\User" MuteAudio REG_DWORD 1
add_value "$app_id_key" LaunchPermission REG_BINARY 01
before=$(processes "$service_process" | head -n 1)
check "an upgrade over the running service succeeds" 0 "$(msi /i "$second")"
check "the service runs after it" RUNNING "$(service_state)"
after=$(processes "$service_process")
check "it is one new process" "yes" "$([ "$(wc -w <<<"$after")" = 1 ] && [ "$after" != "$before" ] && echo yes || echo "$before, then $after")"
look_at "$holv_key\\User"
check "the upgrade keeps the settings" "REG_DWORD 0x1" "$(value MuteAudio)"
check "and registry and files but for what was set" "$product_files" \
    "$(differences "$by_switch" "$(what_is_registered | grep -vE 'MuteAudio|LaunchPermission')")$(files)"
check "an older version is refused" "yes RUNNING" "$([ "$(msi /i "$first")" != 0 ] && echo yes) $(service_state)"

# Killed, the service leaves what is to be restored; the removal restores it.
# Wine's manager learns of the kill when all of Wine is started anew.
add_value 'HKLM\SYSTEM\CurrentControlSet\Services\HOLVService' Start REG_DWORD 3
kill -9 "$after"
end_wine
start_wine
journal() {
    look_at "$holv_key\\Restore"
    if [ -n "$(value Journal)" ]; then echo there; else echo gone; fi
}
check "the killed service has left something to restore" "STOPPED there" "$(service_state) $(journal)"
check "the removal succeeds" 0 "$(msi /x "$second")"
check "the removal has restored it" gone "$(journal)"
check "the service is gone" "" "$(service_state)"
look_at "$app_id_key"
check "upgrade and removal keep the permissions" "REG_BINARY 01" "$(value LaunchPermission)"
wine_does reg delete "$app_id_key" /f >/dev/null
wine_does reg delete "$holv_key\\User" /v MuteAudio /f >/dev/null
check "the registry is the one that the switch for removal leaves" "" \
    "$(differences "$after_switch" "$(what_is_registered)")"
check "the program's files are gone" "" "$(files)"
check "the log stays" "$data/HOLVLog.txt" "$(ls "$data/HOLVLog.txt")"

# An installation by the switch is taken over, and everything can be taken away. The service is stopped before
# by hand: Wine's installer sends it the stop, and then starts it without waiting for its end.
mkdir -p "$installed"
cp "$work"/files/*.exe "$installed"
check "the switch installs after the package" "0 RUNNING" "$(run_switch -Service) $(start_service)"
stop_service >/dev/null
await "HOLVService to be STOPPED" $patience service_is STOPPED || true
check "with RECOVERY=1 the package installs over an installation of the switch" 0 "$(msi /i "$first" RECOVERY=1)"
check "the service runs then" RUNNING "$(service_state)"
check "a removal with PURGE=1 succeeds" 0 "$(msi /x "$first" PURGE=1)"
check "nothing is left in the registry" "13 gone of 13 keys" \
    "$(what_is_registered | sed -E 's/.* is (gone)$/\1/' | sort | uniq -c | sed 's/^ *//') of 13 keys"
check "nothing is left of log and files" "gone " "$([ -e "$data" ] || echo gone) $(files)"

# The product itself, whose service does not start on this machine's processor.
product=$(winepath -w "$build"/packages/Holv-*-x64.msi)
check "on an unsupported processor the installation fails" failed "$([ "$(msi /i "$product")" = 0 ] || echo failed)"
check "and is undone: no service, no files" ", " "$(service_state), $(files)"

tell_not_at_first
echo "$passed checks passed, $failed failed"
[ "$failed" -eq 0 ]
