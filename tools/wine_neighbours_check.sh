# Sourced by wine_check.sh: the real executable with what else there is on a PC: a program that listens
# on the trace pipe and does not read, a logging library; and its log amid faults. Nothing of it may
# hold the service up.

cp "$build/wine/vexlog_stand_in.dll" "$installed/Vexlog.dll"
add_value "$user_key" LoggingLevel REG_DWORD 6
timer_cpu=10 timer_sleep=12

# Every line of a day at the highest level would not fit the pipe, which holds 4 KiB.
enough=$WINEPREFIX/drive_c/enough
heard=$PWD/build/wine_heard.txt
rm -f "$enough" "$diary" "$log" "$installed"/Vexlog.dll.told
timeout 300 wine "$installed/deaf_listener.exe" 'C:\enough' >"$heard" 2>/dev/null &
listener=$!
is_listening() { grep -q listening "$heard"; }
listener_has_ended() { ! kill -0 "$listener" 2>/dev/null; }
await "the listener on the trace pipe to listen" $patience is_listening
start_service >/dev/null
raise $active $timer_cpu $timer_sleep
await "the PC to be put to sleep" $patience grep sleep "$diary" || true
raise $idle $active $normal
asked=$SECONDS
check "the service ends though its listener does not read" gone "$(stop_service)"
check "in time" yes "$([ $((SECONDS - asked)) -le 20 ] && echo yes || echo "after $((SECONDS - asked)) s")"
touch "$enough"
await "the listener to end" $patience listener_has_ended || true
check "the pipe was full, and began with a whole line" "full, the first line whole" \
    "$(tr -d '\r' <"$heard" | tail -n 1)"
check "the log went to nobody else" no "$([ -e "$log" ] && echo yes || echo no)"
check "never-sleep mode went on meanwhile" "$(
    echo "activate $saver"
    echo 'sleep: hibernate 0, force 1, wake disabled 0'
    echo "activate Balanced"
)" "$(grep -E "^(activate $saver|sleep.*|activate Balanced)$" "$diary" | sed -n '2,$p' | uniq | head -n 3)"
check "the logging library is started, stopped and freed" "start HOLVLog 1, stop, freed, " \
    "$(tr -d '\r' <"$installed/Vexlog.dll.told" | sed 's/$/,/' | tr '\n' ' ')"
rm -f "$installed/Vexlog.dll"

wine_does reg delete "$user_key" /f >/dev/null

# A bad pointer in a message is swallowed on every thread, and leaves no lock held.
swallowed=0
WINEDEBUG=$traced timeout $patience wine "$installed/log_faults.exe" >build/wine_faults.txt 2>"$trace" ||
    swallowed=$?
check "the log swallows bad pointers" "0, Test   before the faults, Test   after the faults, " \
    "$swallowed, $(tr -d '\r' <build/wine_faults.txt | grep -a '^Test   ' | sed 's/$/,/' | tr '\n' ' ')"
check "faults are thrown where they are, and locks released" "$(
    echo "a write to null: Fault"
    echo "a division by zero: Fault"
    echo "a raised error: Fault"
    echo "a fault that a system library handles: nothing"
    echo "a C++ exception: 7"
    echo "the lock: released"
)" "$(tr -d '\r' <build/wine_faults.txt | grep -av '^Test   ')"
