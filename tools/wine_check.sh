#!/usr/bin/env bash
# Runs the real executable under Wine and checks, by means of Wine's own programs, its installation,
# its life as a service, its states, its clients, its log, and its package. Usage:
# tools/wine_check.sh BUILD_FOLDER. The folder `wine` of the build contains the executable for this
# machine's processor and replacements for what Wine lacks.
set -euo pipefail
# Mounts of its own give the check a full disk and a battery. Where the system refuses them, both are
# left out.
if [ -z "${HOLV_OWN_MOUNTS:-}" ]; then
    for mounts in --mount '--mount --map-root-user' none; do
        if [ "$mounts" = none ]; then HOLV_OWN_MOUNTS=refused exec "$0" "$@"; fi
        if unshare $mounts test -d /sys/class/power_supply 2>/dev/null; then HOLV_OWN_MOUNTS=yes exec unshare $mounts "$0" "$@"; fi
    done
fi
build=$(realpath "$1")
executable=$build/wine/HOLVService.exe
cd "$(dirname "${BASH_SOURCE[0]}")/.."

export WINEPREFIX=$PWD/build/wine WINEARCH=win64 WINEDEBUG=-all
# No sound driver: without a sound card it would complain on the standard error.
export WINEDLLOVERRIDES='powrprof=n,b;mscoree,mshtml,winealsa.drv='
unset DISPLAY
# Shift the time zone so that it is late in the morning for the service: no do-not-disturb hours
# begin or end.
TZ=LOCAL$(($(date -u +%-H) - 10))
export TZ
source tools/wine_programs.sh
source tools/wine_hardware.sh
trap end_wine EXIT

passed=0
failed=0

# check WHAT EXPECTED WAS
check() {
    if [ "$2" = "$3" ]; then
        passed=$((passed + 1))
        echo "ok: $1"
    else
        failed=$((failed + 1))
        printf 'FAILED: %s\n  expected: %s\n  was:      %s\n' "$1" "$2" "$3"
    fi
}

# A prefix counts only with the mark of how it is made: its creation may have been interrupted.
end_wine
declared=$(perl tools/check_calls.pl --list)
made=$(declare -f make_prefix | cat - <(echo "$declared") | sha256sum)
if [ "$(cat "$WINEPREFIX/.made" 2>/dev/null)" != "$made" ]; then
    echo "Making a Wine prefix (build/wine)"
    make_prefix
    echo "$made" >"$WINEPREFIX/.made"
fi
start_trace
start_wine

# Installed as on a user's PC, blanks in the path included.
windows_path='C:\Program Files\Orbeq\Holv\HOLVService.exe'
installed="$WINEPREFIX/drive_c/Program Files/Orbeq/Holv"
mkdir -p "$installed"
# Not written over: the service of an interrupted run may run.
cp --remove-destination "$build"/wine/*.{dll,exe} "$build/holvctl.exe" "$installed"

# Start from nothing: remove what an earlier run left.
log=$WINEPREFIX/drive_c/ProgramData/Orbeq/Holv/HOLVLog.txt
user_key='HKLM\Software\Orbeq\Holv\User'
oem_key='HKLM\Software\Orbeq\Holv\OEM'
source_key='HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV'
await "HOLVService of an earlier run to be started, or not there" $patience service_is_settled
if [ "$seen" = RUNNING ]; then stop_service >/dev/null; fi
wine "$windows_path" -UnregServer 2>/dev/null || true
source tools/wine_service_check.sh
rm -f "$log"
for key_name in 'HKLM\Software\Orbeq\Holv' "$source_key"; do
    if [ "$(key_is "$key_name")" = there ]; then wine_does reg delete "$key_name" /f >/dev/null; fi
done

# Runs the state machine once, without its events. Then the process tries to be a service, which it
# was not started as: error 1063, of which the shell sees the low byte. Prints any other exit code.
run_service() {
    local code=0
    WINEDEBUG=$traced timeout $patience wine "$windows_path" -Debug 2>"$trace" || code=$?
    [ "$code" -eq $((1063 % 256)) ] || echo "exit code $code"
}

echo "Running $(basename "$executable") -Debug under $(wine --version)"
check "it leaves as no service, and its standard output stays empty" "" "$(run_service)"

look_at "$source_key"
check "the event source names its message file" "REG_EXPAND_SZ $windows_path" "$(value EventMessageFile)"
check "the event source names its category file" "REG_EXPAND_SZ $windows_path" "$(value CategoryMessageFile)"
check "the event source supports three types" "REG_DWORD 0x7" "$(value TypesSupported)"
check "the event source has one category" "REG_DWORD 0x1" "$(value CategoryCount)"
check "the User key is made" there "$(key_is "$user_key")"

# The log, line by line: each ends with CR LF CR CR and begins with the time and the thread.
run_log_check() { perl tools/check_log.pl "$log" "$windows_path" "$1" 2>&1 || true; }
check "the log is as it should be, byte by byte" "ok" "$(run_log_check 1)"
run_service
check "a second run adds a header and its lines" "ok" "$(run_log_check 2)"

# The log's folder, open to all; a link in its place; a second name for its file.
chmod a+rwx "${log%/*}"
run_service
check "a log's folder that lets others write is closed to them" "-" "$(stat -c %A "${log%/*}" | cut -c 9)"
check "and the log goes on in it" "ok" "$(run_log_check 3)"
mkdir -p build/wine_elsewhere
mv "${log%/*}" build/wine_aside
ln -s "$PWD/build/wine_elsewhere" "${log%/*}"
run_service
check "nothing is written through a link in the folder's place" "" "$(ls -A build/wine_elsewhere)"
rm "${log%/*}"
mv build/wine_aside "${log%/*}"
ln "$log" build/wine_elsewhere/second_name
run_service
check "nothing is written to a file with a second name" "ok" "$(run_log_check 3)"
rm -r build/wine_elsewhere

# An OEM setting for the standard output only: each line names its operation, and the file gets none.
add_value "$oem_key" LoggingEnabled REG_DWORD 8
run_service >build/wine_output.txt
check "the standard output gets the lines that the OEM wants there" \
    "CNeverSleepState::Run   Unknown event, WaitForMultipleObjects Return Code=-1, GLE=6" \
    "$(grep 'Unknown event' build/wine_output.txt || true)"
check "a run that logs elsewhere leaves the log file alone" "ok" "$(run_log_check 3)"

wine_does reg delete "$oem_key" /f >/dev/null
source tools/wine_states_check.sh
source tools/wine_neighbours_check.sh
if [ "$HOLV_OWN_MOUNTS" = yes ]; then source tools/wine_scarce_check.sh; fi
source tools/wine_devices_check.sh
source tools/wine_client_check.sh
source tools/wine_holvctl_check.sh
source tools/wine_words_check.sh
check "the switch for removal leaves with exit code 0" 0 \
    "$(run_switch -unregserver)"
check "the service is gone" "" "$(service_state)"
check "and holvctl says so" "5: The service is not installed on this PC." "$(holvctl_ends status | head -n 1)"
for key_name in "$app_id_key" "$class_key"; do
    check "$key_name is gone" gone "$(key_is "$key_name")"
done

# A removed service that another program has open cannot be removed by the next installation, which a
# message box says.
run_switch -Service >/dev/null
boxed=$PWD/build/wine_box.txt
rm -f "$boxed"
timeout $patience wine "$installed/answer_box.exe" HOLVService >"$boxed" 2>/dev/null &
answering=$!
await "the program that answers the message box to wait" $patience grep -q waiting "$boxed"
run_switch -UnregServer >/dev/null
check "a message box tells that the service cannot be replaced" "5, waiting, Could not delete service, " \
    "$(run_switch -Service), $(wait "$answering"; tr -d '\r' <"$boxed" | sed 's/$/,/' | tr '\n' ' ')"

source tools/wine_administration_check.sh

cat >"$WINEPREFIX/drive_c/version.vbs" <<'END'
WScript.Echo CreateObject("Scripting.FileSystemObject").GetFileVersion(WScript.Arguments(0))
END
check "the executable carries its version" 1.1.70.537 \
    "$(wine_does cscript //nologo 'C:\version.vbs' "$windows_path")"
# The executable contains what the event viewer needs.
messages=$(tools/message_table.sh "$executable")
check "the executable carries message 1" 'NeverSleep Agent Service\r\n (8-bit)' \
    "$(sed -n 's/^1: //p' <<<"$messages")"
check "the executable carries message 2000" '%1\r\n (8-bit)' "$(sed -n 's/^2000: //p' <<<"$messages")"

source tools/wine_package_check.sh
end_wine
end_trace
without=()
if [ "$HOLV_OWN_MOUNTS" != yes ]; then
    echo "left out, as this machine refuses mounts: the full disk, the battery, the night with a battery"
    without=(--without FlushFileBuffers)
fi
check "the calls are called as docs/windows.md has it" "" "$(perl tools/check_calls.pl "${without[@]}" "$calls")"
echo "HOLVService.exe: $size bytes; from net start to running $start_ms ms;" \
    "idle, with Wine's part in the process, $idle_kib KiB and $idle_threads threads"
tell_not_at_first
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
