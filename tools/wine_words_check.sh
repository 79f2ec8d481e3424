# Sourced by wine_check.sh: plays scenarios on the virtual PC and under Wine, and compares the
# service's logs line by line. The service is installed before and after.

feature_ids=(E_HOLV_STATE E_AUDIO E_DONOTDISTURB E_APPLICATION_SUSPEND E_SHOW_LYNC_CONTROLS
    E_TURN_ON_DISPLAY_ON_LYNC E_ENTER_S3_ON_DND E_ENABLE_HOLV_ON_DC E_BATTERY_PRESENT)
slots=(EVENT_ENTER_S0 EVENT_ENTER_ACTIVE EVENT_ENTER_IDLE EVENT_ENTER_DND EVENT_LEAVE_DND EVENT_SERVICE_STOP
    EVENT_REGISTRY_CHANGED TIMER_IDLE TIMER_DND_START TIMER_DND_END TIMER_CPU_USAGE TIMER_BATTERY_USAGE)

# index_of NAME LIST...: the name's index in the list, or the name itself.
index_of() {
    local name=$1 place=0 one
    shift
    for one in "$@"; do
        if [ "$one" = "$name" ]; then
            echo "$place"
            return
        fi
        place=$((place + 1))
    done
    echo "$name"
}

# Without a clock of its own to move, Wine has lived as long as the virtual PC when its log has as many
# lines as that one's has by then.
log_has_lines() {
    local lines=$(perl tools/same_words.pl --lines "$log")
    echo "$lines lines"
    [ "$lines" -ge "$1" ]
}
# run_until SECOND: of the scenario.
run_until() {
    local lines=$(perl tools/same_words.pl --lines "$virtual_log" "$1")
    await "the $lines lines that the virtual PC logs in the first $1 s" $patience log_has_lines "$lines"
}

# What a scenario does to the PC's hardware, under Wine. Speakers come all at once, with the first that the
# scenario adds, and in Wine's order. The sound system's multimedia default is always its console's.
plugged=
# plug_once THING [ARGUMENT]: one of the things of wine_hardware.sh, unless it is there.
plug_once() {
    if [[ $plugged != *" $1"* ]]; then "plug_$1" "${@:2}" && plugged="$plugged $1"; fi
}
run_on_battery() { plug_once battery "$1" && charge "$1" && on_mains 0; }
# set_hardware COMMAND...: a command of a scenario.
set_hardware() {
    case "$*" in
        'audio add '*) plug_once speakers ;;
        'audio default '*' console') choose_speakers DefaultOutput "$3" ;;
        'audio default '*' communications') choose_speakers DefaultVoiceOutput "$3" ;;
        'audio default '*' multimedia' | 'audio threads '* | 'audio volume-notices off' | 'battery drain 0/h') ;;
        'device add '*) plug_once device ;;
        'driver requires system "Wine Audio Device"' | 'program requires system Film.exe') plug_once listing ;;
        'power battery '*) run_on_battery "$3" ;;
        'power ac') on_mains 1 ;;
        *) false ;;
    esac
}
unplug_hardware() {
    local thing
    for thing in $plugged; do "unplug_$thing"; done
    plugged=
}
device_mode_is() { [ "$(device_heard | tail -n 1)" = "$(printf ' 53 4e 53 4d %02x 00 00 00' "$1")" ]; }

# The scenario under Wine, where the PC is as it is and what is set in the registry is set by hand.
live_under_wine() {
    local command second=0
    while read -ra command; do
        case "${command[*]}" in
            'expect state '*) await "${command[2]} to be published" $patience holvctl_tells "${command[2]} since" ;;
            'expect device mode '*) await "mode ${command[3]}" $patience device_mode_is "${command[3]}" ;;
            'expect request '*' held') await "the requests to be held" $patience holvctl_tells 'holds its power requests' ;;
            'expect request '*' released') await "the requests to be released" $patience holvctl_tells 'holds no power request' ;;
            '' | '#'* | 'clock '* | 'os '* | 'user '* | 'fault '* | 'expect '* | 'say '* | 'client quit') ;;
            'reg set '*) add_value "${command[2]}" "${command[3]}" REG_DWORD "${command[5]}" ;;
            'service install') wine_does "$windows_path" -Service && register_for_any_language ;;
            'service start') [ "$(start_service)" = RUNNING ] ;;
            'service stop') [ "$(stop_service)" = gone ] ;;
            'run '*) second=$((second + ${command[1]%s})) && run_until $second ;;
            'client get '*) holvctl get "$(index_of "${command[2]}" "${feature_ids[@]}")" ;;
            'client set '*) script set "$(index_of "${command[2]}" "${feature_ids[@]}")" "${command[3]}" ;;
            'client '*) holvctl "${command[@]:1}" ;;
            'ctl '*) holvctl_ends "${command[1]}" | sed '1s/^[0-9]*: //' >>"$ctl_said" ;;
            'signal '*) raise "$(index_of "${command[1]}" "${slots[@]}")" ;;
            *) set_hardware "${command[@]}" ;;
        esac </dev/null || {
            echo "$scenario: Wine cannot do '${command[*]}'" >&2
            return
        }
    done <$scenario
}

# What holvctl says, without times.
ctl_words() {
    grep -E '^[A-Z]' | sed -E 's/[0-9]{4}-[0-9-]{5}/DAY/g; s/[0-9]{2}:[0-9]{2}:[0-9]{2}/TIME/g; s/\([0-9]+ min\)//; s/ +$//'
}

# compare_words NAME WHEN: plays that scenario on both machines.
compare_words() {
    scenario=scenarios/$1.pc
    virtual_log=build/$1/C/ProgramData/Orbeq/Holv/HOLVLog.txt
    rm -rf "build/$1"
    build/release/holvpc run --root "build/$1" --trace "build/$1.sent" --trace-only 'device request' $scenario |
        tail -n +2 | ctl_words >"build/$1.words"
    wine "$windows_path" -UnregServer 2>/dev/null || true
    forget "$user_key"
    rm -f "$log"
    ctl_said=build/wine_ctl.txt
    rm -f "$ctl_said"
    live_under_wine >/dev/null
    unplug_hardware
    check "the service says the same words on both machines$2" "ok" \
        "$(perl tools/same_words.pl "$virtual_log" "$log" 2>&1 || true)"
    if grep -q '^device add' $scenario; then
        check "the device is sent the same bytes on both machines$2" \
            "$(sed -nE 's/.*"bytes":"([^"]*)".*/ \L\1/p' "build/$1.sent")" "$(device_heard)"
    fi
    check "holvctl says the same words on both machines$2" "" \
        "$(diff "build/$1.words" <(ctl_words <"$ctl_said"))"
}
compare_words both_machines ""
if [ "$HOLV_OWN_MOUNTS" = yes ]; then
    compare_words both_machines_night ", in a night with sound, device and battery"
fi
