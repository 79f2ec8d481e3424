# Sourced by wine_check.sh: plays one scenario on the virtual PC and under Wine, and compares the
# service's logs line by line. The service is installed before and after.

scenario=scenarios/both_machines.pc
features=(E_HOLV_STATE E_AUDIO E_DONOTDISTURB E_APPLICATION_SUSPEND E_SHOW_LYNC_CONTROLS
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

# Plays the scenario under Wine. Commands that describe the PC are skipped, because Wine's PC cannot
# be changed; registry values are set with reg.
live_under_wine() {
    local command
    while read -ra command; do
        case "${command[*]}" in
            '' | '#'* | 'clock '* | 'os '* | 'user '* | 'fault '* | 'expect '* | 'client quit') ;;
            'reg set '*) wine reg add "${command[2]}" /v "${command[3]}" /t REG_DWORD /d "${command[5]}" /f ;;
            'service install') wine "$windows_path" -Service && register_for_any_language ;;
            'service start') start_service ;;
            'service stop') stop_service ;;
            'run '*) sleep 1 ;;
            'client get '* | 'client set '*)
                holv_client "${command[1]}" "$(index_of "${command[2]}" "${features[@]}")" "${command[@]:3}"
                ;;
            'client '*) holv_client "${command[@]:1}" ;;
            'signal '*)
                wine "$installed/raise_event.exe" HOLVService.exe "$events" \
                    "$(index_of "${command[1]}" "${slots[@]}")"
                ;;
            *) false ;;
        esac </dev/null || echo "$scenario: Wine cannot do '${command[*]}'" >&2
    done <$scenario
}

wine "$windows_path" -UnregServer >/dev/null 2>&1 || true
rm -rf "$log" build/both_machines
live_under_wine >/dev/null
build/release/holvpc run --root build/both_machines $scenario >/dev/null
check "the service says the same words on both machines" "ok" \
    "$(perl tools/same_words.pl "build/both_machines/C/ProgramData/Orbeq/Holv/HOLVLog.txt" "$log" 2>&1 || true)"
