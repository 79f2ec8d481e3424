# Sourced by wine_check.sh: how the check starts and ends Wine, runs programs under it, and waits for
# what they bring about.

# await WHAT SECONDS COMMAND...: runs the command until it succeeds. The output of the last attempt
# stays in `seen`, and is printed when the time is up.
await() {
    local what=$1 seconds=$2
    local end=$((SECONDS + seconds))
    shift 2
    until seen=$("$@" 2>&1); do
        if [ "$SECONDS" -ge "$end" ]; then
            echo "Waited $seconds s for $what; last seen: ${seen:-nothing}" >&2
            return 1
        fi
        sleep 0.1
    done
}
# Seconds that a state, or a program's end, may take on a machine that compiles beside the check.
patience=60

# run_wine PROGRAM...: runs a program for as long as that at most. Beside busy compilers it happens that Wine
# does not start a program, and its start.exe says so. The program has not begun then, and is run
# once more; which ones these were is told at the end.
run_wine() {
    local code says attempt
    for attempt in first last; do
        code=0
        says=$(timeout $patience wine "$@") || code=$?
        if [[ $code -eq 0 || $says != *'ShellExecuteEx failed: Internal error'* ]]; then break; fi
        echo "start $1" >>"$not_at_first"
    done
    if [ -n "$says" ]; then echo "$says"; fi
    return "$code"
}
not_at_first=$WINEPREFIX.not_at_first.txt
rm -f "$not_at_first"
tell_not_at_first() {
    if [ -e "$not_at_first" ]; then sed 's/.*/Wine did not & at first/' "$not_at_first"; fi
}

# wine_does PROGRAM...: prints what a program says on its standard output. When it fails or does not
# end in time, the command, its exit code and its output are printed. One that fails without a word has not begun
# either: all that the check runs tell why they fail.
wine_does() {
    local code says attempt
    for attempt in first last; do
        code=0
        says=$(run_wine "$@" 2>"$complaints") || code=$?
        if [ "$code" -ne 1 ] || [ -n "$says" ] || [ -s "$complaints" ]; then break; fi
        echo "begin $*" >>"$not_at_first"
    done
    says=${says//$'\r'/}
    if [ "$code" -ne 0 ]; then echo "wine $*: exit code $code: $says $(<"$complaints")" >&2; fi
    if [ -n "$says" ]; then echo "$says"; fi
    return "$code"
}
complaints=$WINEPREFIX.complaints.txt

# run_switch SWITCH: the exit code of the service's program with it. What it calls is traced, or, where the
# trace is a file, told when it fails.
run_switch() {
    local code=0 says
    says=$(WINEDEBUG=$traced run_wine "$windows_path" "$1" 2>"$trace") || code=$?
    if [ "$code" -ne 0 ] && [ -f "$trace" ]; then echo "$1: $code: $says $(<"$trace")" >&2; fi
    echo "$code"
}

holvctl() { wine_does "$installed/holvctl.exe" "$@"; }
# holvctl_ends COMMAND...: its exit code, and what it says.
holvctl_ends() {
    local code=0 says
    says=$(run_wine "$installed/holvctl.exe" "$@" 2>"$complaints" | tr -d '\r') || code=$?
    echo "$code: $says"
}
# holvctl_tells TEXT: whether its status has it.
holvctl_tells() {
    local says=$(holvctl status)
    echo "$says"
    [[ $says = *"$1"* ]]
}

# add_value KEY NAME TYPE DATA
add_value() { wine_does reg add "$1" /v "$2" /t "$3" /d "$4" /f >/dev/null; }

# ask_registry KEY [/s]: what `reg query` says. Beside busy compilers it happens that it fails for a key that is
# there, so that it is asked once more; where only the first answer was a failure, it is told at the end.
ask_registry() {
    local code=0 says again
    says=$(run_wine reg query "$@" 2>&1) || code=$?
    if [ "$code" -ne 0 ] && again=$(run_wine reg query "$@" 2>&1); then
        echo "find $1 (exit code $code: $says)" | tr -d '\r' | tr '\n' ' ' >>"$not_at_first"
        echo >>"$not_at_first"
        code=0 says=$again
    fi
    echo "${says//$'\r'/}"
    return $code
}

# look_at KEY: reads the values of a registry key. A key that is not there has none; any other failure is told.
look_at() {
    local code=0
    values=$(ask_registry "$1") || code=$?
    key=there
    if [ "$code" -ne 0 ]; then
        key=gone
        if [[ $values != *'nable to find the specified registry key'* ]]; then
            key="unknown: reg query ended with exit code $code: $values"
            echo "$1 is $key" >&2
        fi
        values=
    fi
}
# value NAME: of the key looked at last, "TYPE DATA"; nothing when it is not there.
value() { sed -nE "s/^ +$1 +(REG_[A-Z_]+) +(.*)$/\1 \2/p" <<<"$values"; }
default_value() { value '\(Default\)'; }
# key_is KEY: "there" or "gone".
key_is() {
    look_at "$1"
    echo "$key"
}

# The service, as Wine's manager knows it: its state, or nothing where there is none.
service_state() {
    local says
    says=$(run_wine sc query HOLVService 2>&1 | tr -d '\r') ||
        wine_does sc query RpcSs >/dev/null || echo "unknown: the service manager does not answer"
    sed -nE 's/^ +STATE +: [0-9] +([A-Z_]+).*$/\1/p' <<<"$says"
}
service_is() {
    local state=$(service_state)
    echo "$state"
    [ "$state" = "$1" ]
}
service_is_settled() {
    local state=$(service_state)
    echo "$state"
    [[ $state != *PENDING ]]
}

# processes PROGRAM: those of this prefix, as another check may run beside it.
processes() {
    local process
    for process in $(pgrep -f "$1"); do
        if grep -qzxF "WINEPREFIX=$WINEPREFIX" "/proc/$process/environ" 2>/dev/null; then
            echo "$process"
        fi
    done
}
service_process='Orbeq.Holv.HOLVService\.exe'
helper_process='HOLVLyncHelper\.LycnConsole\.exe'
is_gone() {
    local left=$(processes "$1")
    if [ -n "$left" ]; then
        echo "still there"
        return 1
    fi
    echo gone
}

# log_says TEXT: whether the service's log has it.
log_says() {
    tail -c 100 "$log"
    grep -qaF "$1" "$log"
}

start_service() {
    wine_does net start HOLVService >/dev/null
    await "HOLVService to be RUNNING" $patience service_is RUNNING
    echo "$seen"
}
# The process goes a little after the service, and a plain server a second after its last client.
until_gone() {
    await "the process of HOLVService.exe to be gone" $patience is_gone "$service_process"
    echo "$seen"
}
stop_service() {
    wine_does net stop HOLVService >/dev/null
    until_gone
}

# What the service calls of Windows is traced. A program whose calls are to be seen writes its trace to a
# pipe, whose reader keeps the calls of the image that lies where all programs lie, and where each program
# begins. The registry of the prefix says which functions and whose calls are traced.
traced=err-all,+pid,+relay
trace=$PWD/build/wine_trace
calls=$PWD/build/wine_calls.txt
start_trace() {
    rm -f "$trace"
    mkfifo "$trace"
    LC_ALL=C grep -aE 'Call .* ret=1400.....$|"ntdll.dll",reason=PROCESS_ATTACH' \
        <"$trace" >"$calls" &
    reader=$!
    # Open for as long as the check, so that the reader stays between two programs.
    exec {trace_end}>"$trace"
}
reader_has_ended() { ! kill -0 "$reader" 2>/dev/null; }
# When all of Wine has ended, so that every call is in the file.
end_trace() {
    exec {trace_end}>&-
    await "the reader of the trace to see its end" $patience reader_has_ended
}

# make_prefix: makes build/wine anew, for the functions to be traced in `declared`.
make_prefix() {
    local debug='HKCU\Software\Wine\Debug' services='HKLM\SYSTEM\CurrentControlSet\Services'
    rm -rf "$WINEPREFIX"
    wineboot -i >/dev/null 2>&1
    add_value "$debug" RelayInclude REG_SZ "$declared"
    add_value "$debug" RelayExclude REG_SZ none
    # Wine's own choice of programs that are not traced goes before the one of those that are.
    wine_does reg delete "$debug" /v RelayFromExclude /f >/dev/null
    add_value "$debug" RelayFromInclude REG_SZ 'HOLVService.exe;log_faults.exe'
    # Windows without a display, so that a message box can be shown and answered.
    add_value 'HKCU\Software\Wine\Drivers' Graphics REG_SZ null
    # RpcSs first, as Windows starts it before what depends on it. Wine starts services in the order of
    # their tags, taken as signed numbers, whatever they depend on, and holds the lock for starting until
    # the last has been started. A service that registers its class object earlier than RpcSs runs waits
    # three seconds for that lock; then its registration is lost, and no client ever reaches it.
    add_value "$services\\RpcSs" Start REG_DWORD 2
    add_value "$services\\RpcSs" Tag REG_DWORD 0xffffffff
    # The event log last: own_services_run takes it as the sign that all have been started.
    add_value "$services\\Eventlog" Tag REG_DWORD 0x10000
    wineserver -w
}

# Wine's services live as long as the server, which stays until it is ended: otherwise they would end
# after the last program, and start anew amid the next one. Their calls are traced, as the service's
# program is started by one of them, with its standard error.
start_wine() {
    wineserver -p
    WINEDEBUG=$traced run_wine cmd /c exit >/dev/null 2>"$trace"
    await "Wine's own services to run" $patience own_services_run
}
own_services_run() {
    local running
    running=$(timeout $patience wine net start 2>&1) || return 1
    echo "$running"
    [[ $running = *'Remote Procedure Call'* && $running = *'Event Log'* ]]
}
end_wine() {
    wineserver -k || true
    wineserver -w
}
