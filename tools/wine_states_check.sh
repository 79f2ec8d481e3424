# Sourced by wine_check.sh: the real executable goes through its states. The replacement of the
# power library (tools/wine/powrprof.cpp) records the order of all plan writes and activations; a
# helper program records how it was started.

diary=$installed/powrprof.log
map=$build/wine_HOLVService.map
events=$(perl -ne '
    $base = hex $1 if /(0x[0-9a-f]+)\s+__image_base__ =/;
    $events = hex $1 if /(0x[0-9a-f]+)\s+g_hGlobalEvents$/;
    END { printf "%x", $events - $base }' "$map")

# raise SLOT...: these events, one after the other. Each has been acted upon when the next is raised.
raise() {
    wine_does "$installed/raise_event.exe" HOLVService.exe "$events" "$@"
}
# live_through SLOT...: the service from its start through these events to its stop.
live_through() {
    rm -f "$diary"
    start_service >/dev/null
    raise "$@"
    stop_service >/dev/null
    await "the power library to end" $patience grep -q 'active at the end' "$diary" || true
    cat "$diary"
}

# each PLAN SETTING AC DC: the two writes of a setting, for AC and DC.
each() { printf 'write %s: %s ac %s\nwrite %s: %s dc %s\n' "$1" "$2" "$3" "$1" "$2" "$4"; }
saver='Power saver'
allowed() {
    each "$1" away-mode 1 1
    each "$1" wake-timers 1 1
}
users_values() {
    each "$saver" brightness "$1" "$2"
    each "$saver" password-on-wake 1 1
}
processor() {
    printf "write $saver: processor-%s $1 %s\n" min 5 max "$2"
}
taken() {
    allowed Balanced
    allowed "$saver"
    echo "activate Balanced"
}
given_back() {
    each Balanced away-mode 0 0
    each Balanced wake-timers 0 0
    for source in ac dc; do
        printf "write $saver: processor-%s $source %s\n" max 100 min 5
    done
    each "$saver" wake-timers 0 0
    each "$saver" away-mode 0 0
    echo "changed $saver: processor-max dc 75 -> 100"
    echo "active at the end: Balanced"
}

active=1 idle=2 normal=0 dnd=3
check "the plans are configured, switched in HOLV_ACTIVE and HOLV_IDLE, and restored" \
    "$(
        taken
        users_values 100 40
        echo "activate $saver"
        users_values 60 20
        echo "activate Balanced"
        given_back
    )" "$(live_through $active $idle $normal)"

add_value "$user_key" DndToS3 REG_DWORD 1
add_value "$user_key" MaxCpuPowerLimit REG_DWORD 30
check "do-not-disturb limits the processor and lets the PC sleep, and undoes both" \
    "$(
        taken
        users_values 100 40
        processor ac 30
        processor dc 30
        each "$saver" sleep-timeout 60 60
        each "$saver" wake-timers 1 1
        echo "activate $saver"
        processor dc 100
        processor ac 100
        each "$saver" sleep-timeout 900 600
        each "$saver" wake-timers 1 1
        users_values 60 20
        echo "activate Balanced"
        given_back
    )" "$(live_through $dnd $normal)"

oem_plan=8C5E7FDA-E8BF-4A96-9A85-A6E23A8C635C
add_value "$oem_key" UseOemPowerScheme REG_DWORD 1
add_value "$oem_key" OemPowerScheme REG_SZ "{$oem_plan}"
check "an OEM plan whose name is no GUID is not activated, and the user's plan is given back" \
    "$(
        allowed Balanced
        printf 'activate Balanced\nactivate Balanced\n'
        each Balanced away-mode 0 0
        each Balanced wake-timers 0 0
        echo "active at the end: Balanced"
    )" "$(live_through $active $normal)"
add_value "$oem_key" OemPowerScheme REG_SZ "$oem_plan"
check "the OEM's plan is activated instead of Power saver" "activate High performance" \
    "$(live_through $active $normal | grep -v 'activate Balanced' | grep '^activate')"

# A helper is started by its own quoted path; a program at a prefix of that path that ends at a
# blank is not.
helper="$installed/HOLVLyncHelper.LycnConsole.exe"
planted="$WINEPREFIX/drive_c/Program.exe"
lync_key='HKLM\Software\Microsoft\Communicator\4.0'
helper_has_told() { [ -s "$helper.started" ]; }
rm -f "$helper.started" "$planted.started"
cp "$installed/tell_start.exe" "$helper"
cp "$installed/tell_start.exe" "$planted"
wine_does reg add "$lync_key" /f >/dev/null
start_service >/dev/null
raise $active $dnd
# Do-not-disturb may end it as soon as it is left, so it is not left before the helper has told.
await "the helper to tell how it was started" $patience helper_has_told || true
raise $normal
await "the helper to be ended" $patience is_gone "$helper_process" || true
helper_end=$seen
stop_service >/dev/null
check "a helper is started by its quoted path" \
    '"C:\Program Files\Orbeq\Holv\HOLVLyncHelper.LycnConsole.exe" D:1 T:30' \
    "$(tr -d '\r' <"$helper.started" || true)"
check "a program planted at C:\Program.exe is not started" no \
    "$([ -e "$planted.started" ] && echo yes || echo no)"
check "do-not-disturb ends the helper" gone "$helper_end"
rm -f "$helper" "$planted"
for key in "$lync_key" "$oem_key" "$user_key"; do wine_does reg delete "$key" /f >/dev/null; done

# Killed in never-sleep mode, while the plans are kept: the next start restores what is the user's. Wine's
# service manager does not notice that the process has died, so all of Wine is ended too, as when a PC
# loses its power. The service starts with the system.
: >"$installed/powrprof.plans"
start_service >/dev/null
raise $active
check "never-sleep mode has its own plan active" "activate $saver" "$(grep '^activate' "$diary" | tail -n 1)"
wine_does taskkill /f /im HOLVService.exe >/dev/null
check "the process can be killed in never-sleep mode" gone "$(until_gone)"
end_wine
rm -f "$diary"
start_wine
await "HOLVService to be RUNNING" $patience service_is RUNNING || true
stop_service >/dev/null
await "the power library to end" $patience grep -q 'active at the end' "$diary" || true
check "the start after a kill restores the user's plan and its values, before it takes control" \
    "$(
        for plan in Balanced "$saver"; do
            each "$plan" away-mode 0 0
            each "$plan" wake-timers 0 0
        done
        each "$saver" brightness 60 20
        printf "activate $saver\nactivate Balanced\n"
    )" "$(sed -n '1,/^activate Balanced/p' "$diary")"
check "and nothing of never-sleep mode is left after it" "$(given_back | tail -n 2)" "$(tail -n 2 "$diary")"
rm -f "$installed/powrprof.plans"
