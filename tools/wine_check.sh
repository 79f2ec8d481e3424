#!/usr/bin/env bash
# Runs the real executable under Wine and checks, by means of Wine's own programs, its installation,
# its life as a service, its states, its clients, its log, and its package. Usage:
# tools/wine_check.sh BUILD_FOLDER. The folder `wine` of the build contains the executable for this
# machine's processor and replacements for what Wine lacks.
set -euo pipefail
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
end_wine() {
    wineserver -k || true
    wineserver -w
    wait "${KEEPER_PID:-}" 2>/dev/null || true
}
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

# wine_does PROGRAM...: prints the program's output. Retries once after a failure, because on a busy
# machine Wine's programs now and then do not reach one another.
wine_does() {
    local output
    if ! output=$(timeout 60 wine "$@" 2>/dev/null | tr -d '\r'); then
        echo "Once more: $*" >&2
        output=$(timeout 60 wine "$@" 2>&1 | tr -d '\r') || true
    fi
    echo "$output"
}

# The data of a registry value as `reg query` shows it, "TYPE DATA"; empty when it is not there.
registry_value() {
    wine_does reg query "$1" /v "$2" 2>/dev/null | sed -nE "s/^ +$2 +(REG_[A-Z_]+) +(.*)$/\1 \2/p"
}

# A prefix is complete only with its mark: its creation may have been interrupted.
if [ ! -f "$WINEPREFIX/.made" ]; then
    echo "Making a Wine prefix (build/wine)"
    rm -rf "$WINEPREFIX"
    wineboot -i >/dev/null 2>&1
    wineserver -w
    touch "$WINEPREFIX/.made"
fi

# Traces the service's calls of Windows: only the functions that our headers declare.
calls=$PWD/build/wine_calls.txt
traced=+pid,+relay
declared=$(perl tools/check_calls.pl --list)
wine reg add 'HKCU\Software\Wine\Debug' /v RelayInclude /d "$declared" /f >/dev/null 2>&1
wine reg add 'HKCU\Software\Wine\Debug' /v RelayExclude /d none /f >/dev/null 2>&1
end_wine
: >"$calls"

# Keeps of a trace on the standard input the calls from the programs themselves, whose images all
# lie at this address, and the start of each program.
keep_calls() {
    grep -aE --line-buffered 'Call .* ret=1400.....$|"ntdll.dll",reason=PROCESS_ATTACH' >>"$calls"
}

# Wine ends its services when no other program runs, and starts them with the next program, whose
# standard error they share.
keep_wine_alive() {
    local before=$(wc -l <"$calls")
    coproc KEEPER { WINEDEBUG=$traced wine cmd 2>&1 >/dev/null | keep_calls; }
    for _ in $(seq 100); do
        if [ "$(wc -l <"$calls")" -gt "$before" ]; then break; fi
        sleep 0.1
    done
}
keep_wine_alive

# Installed as on a user's PC, blanks in the path included.
windows_path='C:\Program Files\Orbeq\Holv\HOLVService.exe'
installed="$WINEPREFIX/drive_c/Program Files/Orbeq/Holv"
mkdir -p "$installed"
cp "$build"/wine/*.{dll,exe} "$installed"

# run_switch SWITCH: runs the program with a switch and prints its exit code.
run_switch() {
    local code=0
    WINEDEBUG=$traced timeout 60 wine "$windows_path" "$1" >/dev/null 2> >(keep_calls) || code=$?
    echo "$code"
}

# Start from nothing: remove what an earlier run left.
log=$WINEPREFIX/drive_c/ProgramData/Orbeq/Holv/HOLVLog.txt
user_key='HKLM\Software\Orbeq\Holv\User'
oem_key='HKLM\Software\Orbeq\Holv\OEM'
source_key='HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV'
wine net stop HOLVService >/dev/null 2>&1 || true
wine "$windows_path" -UnregServer >/dev/null 2>&1 || true
source tools/wine_service_check.sh
rm -f "$log"
wine reg delete 'HKLM\Software\Orbeq\Holv' /f >/dev/null 2>&1 || true
wine reg delete "$source_key" /f >/dev/null 2>&1 || true

# Runs the state machine once, without its events. Then the process tries to be a service, which it
# was not started as: error 1063, of which the shell sees the low byte. Prints any other exit code.
run_service() {
    local code=0
    WINEDEBUG=$traced timeout 60 wine "$windows_path" -Debug 2> >(keep_calls) || code=$?
    [ "$code" -eq $((1063 % 256)) ] || echo "exit code $code"
}

echo "Running $(basename "$executable") -Debug under $(wine --version)"
check "it leaves as no service, and its standard output stays empty" "" "$(run_service)"

check "the event source names its message file" "REG_EXPAND_SZ $windows_path" \
    "$(registry_value "$source_key" EventMessageFile)"
check "the event source names its category file" "REG_EXPAND_SZ $windows_path" \
    "$(registry_value "$source_key" CategoryMessageFile)"
check "the event source supports three types" "REG_DWORD 0x7" \
    "$(registry_value "$source_key" TypesSupported)"
check "the event source has one category" "REG_DWORD 0x1" \
    "$(registry_value "$source_key" CategoryCount)"
check "the User key is made" 0 "$(wine reg query "$user_key" >/dev/null 2>&1; echo $?)"

# The log, line by line: each ends with CR LF CR CR and begins with the time and the thread.
run_log_check() { perl tools/check_log.pl "$log" "$windows_path" "$1" 2>&1 || true; }
check "the log is as it should be, byte by byte" "ok" "$(run_log_check 1)"
run_service
check "a second run adds a header and its lines" "ok" "$(run_log_check 2)"

# An OEM setting for the standard output only: each line names its operation, and the file gets
# none.
wine reg add "$oem_key" /v LoggingEnabled /t REG_DWORD /d 8 /f >/dev/null
run_service >build/wine_output.txt
check "the standard output gets the lines that the OEM wants there" \
    "CNeverSleepState::Run   Unknown event, WaitForMultipleObjects Return Code=-1, GLE=6" \
    "$(grep 'Unknown event' build/wine_output.txt || true)"
check "a run that logs elsewhere leaves the log file alone" "ok" "$(run_log_check 2)"

wine reg delete "$oem_key" /f >/dev/null
source tools/wine_states_check.sh
source tools/wine_client_check.sh
source tools/wine_words_check.sh
check "the switch for removal leaves with exit code 0" 0 \
    "$(run_switch -unregserver)"
check "the service is gone" "" "$(service_state)"
for key in "$app_id_key" "$class_key"; do
    check "$key is gone" 1 "$(wine reg query "$key" >/dev/null 2>&1; echo $?)"
done

cat >"$WINEPREFIX/drive_c/version.vbs" <<'END'
WScript.Echo CreateObject("Scripting.FileSystemObject").GetFileVersion(WScript.Arguments(0))
END
check "the executable carries its version" 1.1.70.537 \
    "$(wine cscript //nologo 'C:\version.vbs' "$windows_path" 2>/dev/null | tr -d '\r')"
# The executable contains what the event viewer needs.
messages=$(tools/message_table.sh "$executable")
check "the executable carries message 1" 'NeverSleep Agent Service\r\n (8-bit)' \
    "$(sed -n 's/^1: //p' <<<"$messages")"
check "the executable carries message 2000" '%1\r\n (8-bit)' "$(sed -n 's/^2000: //p' <<<"$messages")"

check "the calls are called as docs/windows.md has it" "" "$(perl tools/check_calls.pl "$calls")"
source tools/wine_package_check.sh
echo "HOLVService.exe: $size bytes; from net start to running $start_ms ms;" \
    "idle, with Wine's part in the process, $idle_kib KiB and $idle_threads threads"
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
