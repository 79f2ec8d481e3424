# Sourced by wine_check.sh: plays one scenario on the virtual PC and under Wine, and compares the
# service's logs line by line. The service is installed before and after.

scenario=scenarios/both_machines.pc
feature_ids=(E_HOLV_STATE E_AUDIO E_DONOTDISTURB E_APPLICATION_SUSPEND E_SHOW_LYNC_CONTROLS
    E_TURN_ON_DISPLAY_ON_LYNC E_ENTER_S3_ON_DND E_ENABLE_HOLV_ON_DC E_BATTERY_PRESENT)
slots=(EVENT_ENTER_S0 EVENT_ENTER_ACTIVE EVENT_ENTER_IDLE EVENT_ENTER_DND EVENT_LEAVE_DND)

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
virtual_log=build/both_machines/C/ProgramData/Orbeq/Holv/HOLVLog.txt
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

# The scenario under Wine, where the PC is as it is and what is set in the registry is set by hand.
live_under_wine() {
    local command second=0
    while read -ra command; do
        case "${command[*]}" in
            'expect state '*) await "${command[2]} to be published" $patience holvctl_tells "${command[2]} since" ;;
            '' | '#'* | 'clock '* | 'os '* | 'user '* | 'fault '* | 'expect '* | 'client quit') ;;
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
            *) false ;;
        esac </dev/null || {
            echo "$scenario: Wine cannot do '${command[*]}'" >&2
            return
        }
    done <$scenario
}

# What holvctl says, without times; Wine has nothing that lists the holders of power requests.
ctl_words() {
    grep -E '^[A-Z]' | grep -v '^Held by' | sed -E 's/[0-9]{4}-[0-9-]{5}/DAY/g; s/[0-9]{2}:[0-9]{2}:[0-9]{2}/TIME/g; s/\([0-9]+ min\)//; s/ +$//'
}
rm -rf build/both_machines
build/release/holvpc run --root build/both_machines $scenario | tail -n +2 | ctl_words >build/both_machines.words
wine "$windows_path" -UnregServer 2>/dev/null || true
rm -f "$log"
ctl_said=build/wine_ctl.txt
rm -f "$ctl_said"
live_under_wine >/dev/null
check "the service says the same words on both machines" "ok" \
    "$(perl tools/same_words.pl "$virtual_log" "$log" 2>&1 || true)"
check "holvctl says the same words on both machines" "" \
    "$(diff build/both_machines.words <(ctl_words <"$ctl_said"))"
