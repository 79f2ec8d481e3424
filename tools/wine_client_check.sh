# Sourced by wine_check.sh: clients of the installed service, late-bound in VBScript under Wine's script
# host, and early-bound, which is holvctl, through Wine's marshalling. Leaves the service stopped and
# its settings removed.

cp examples/switch.vbs "$installed"
script() { wine_does cscript //nologo 'C:\Program Files\Orbeq\Holv\switch.vbs' "$@"; }
# features VALUE...: what holvctl shows of these.
features() {
    local name
    for name in never-sleep mute-audio do-not-disturb app-suspend lync-installed display-on-lync sleep-in-hours \
        on-battery has-battery; do
        echo "$name $1"
        shift
    done
}

# Wine's marshalling finds a type library only if it is registered for the neutral language, and
# ours is English. Windows accepts any language.
type_library='HKCR\TypeLib\{C4D72A19-3B8E-4F05-9A61-E2B7D048F1C3}'
register_for_any_language() { wine_does reg add "$type_library\\1.1\\0\\win64" /ve /d "$windows_path" /f >/dev/null; }
look_at "$type_library\\1.1\\409\\win64"
check "the type library is registered in its own language" "REG_SZ $windows_path" "$(default_value)"
register_for_any_language

rm -f "$log"
check "a client's call starts the service, and reads what is built in" "$(features 1 0 1 0 0 1 0 1 0)" "$(holvctl get)"
check "it was started as a service" RUNNING "$(service_state)"
check "a client reads the version" "The service is version 1,1,70,537." "$(holvctl version)"
for feature in 0 1 2 3 4 5 6 7 8; do
    value=$((feature == 1 || feature == 3 || feature == 4 || feature == 6 || feature == 8))
    check "a script switches feature $feature" "feature $feature is switched to $value" \
        "$(script set $feature $value)"
done
check "a script sets the interval" "do not disturb from minute 1290 to 345" "$(script interval 1290 345)"
check "a script raises an event code and reads it back" "event code 2" "$(script event 2)"
check "a client reads what scripts have switched" "$(features 0 1 0 1 0 0 1 0 0)" "$(holvctl get)"
check "and the interval" "do not disturb from 21:30 to 05:45" "$(holvctl interval)"
check "a client switches a feature" "never-sleep is on., 1, never-sleep is off., 0, " \
    "$(for command in 'set never-sleep on' 'get never-sleep' 'set 0 off' 'get 0'; do
        holvctl $command
    done | sed 's/$/,/' | tr '\n' ' ')"
check "a client sets the interval" \
    "do not disturb from 22:15 to 06:30, do not disturb from 21:30 to 05:45, " \
    "$(for hours in '22:15 06:30' '1290 345'; do holvctl interval $hours; done | sed 's/$/,/' | tr '\n' ' ')"
look_at "$user_key"
check "the settings are in the registry" \
    "DndToS3=0x1 DoNotDisturbEnd=0x159 DoNotDisturbStart=0x50a EnableAppSuspend=0x1 EnableDoNotDisturb=0x0 EnableHOLVOnDc=0x0 EnableNeverSleep=0x0 MuteAudio=0x1 TurnOnDisplayOnLync=0x0 " \
    "$(sed -nE 's/^ +(\w+) +REG_DWORD +(\w+)$/\1=\2/p' <<<"$values" | sort | tr '\n' ' ')"
check "a sink hears an event code, which then counts" \
    $'heard event code 1\nThe event code is state-change.' "$(holvctl event state-change)"
check "a sink that refuses one keeps the old one" \
    $'heard event code 2 and refused it\nThe event code is update-available.' "$(holvctl event 2 refuse)"
check "the log names each switch" \
    "Setting Holv State to disabled,Setting Mute Audio to mute,Setting DND to disabled,Setting App Suspend to enabled,Setting Lync Controls to enabled,Setting Display on Lync to disabled,Setting DND to S3 to enabled,Setting Holv on DC to disabled,Setting Mobile platform to true,Setting Holv State to enabled,Setting Holv State to disabled," \
    "$(grep -aoE 'Setting [A-Z][A-Za-z0-9 ]+ to [a-z ]+' "$log" | sed 's/ *$/,/' | tr -d '\n')"

check "the service stops" gone "$(stop_service)"
check "the service starts again" RUNNING "$(start_service)"
switched=$(features 0 1 0 0 0 0 1 0 0)
check "what was switched outlives the service, but for app suspend" "$switched" "$(holvctl get)"

# Wine's service manager and its list of classes do not notice that a process has died, so all of it is
# ended too, as when a PC loses its power. The service starts with the system.
wine_does taskkill /f /im HOLVService.exe >/dev/null
check "its process can be killed" gone "$(until_gone)"
end_wine
start_wine
await "HOLVService to be RUNNING" $patience service_is RUNNING || true
check "it starts again with the system" RUNNING "$seen"
check "with what had been switched" "$switched do not disturb from 21:30 to 05:45" "$(holvctl get) $(holvctl interval)"
check "and stops" gone "$(stop_service)"

rm -f "$log"
check "the switch for a plain server leaves with exit code 0" 0 \
    "$(run_switch -RegServer)"
register_for_any_language
check "there is no service then" "" "$(service_state)"
check "a client starts the plain server" "$switched" \
    "$(WINEDEBUG=$traced run_wine "$installed/holvctl.exe" get 2>"$trace" | tr -d '\r')"
check "which ends when its last client lets go" gone "$(until_gone)"
check "and had no state machine" 0 "$(grep -ac 'global events' "$log" || true)"
wine_does reg delete "$type_library\\1.1\\0" /f >/dev/null

# A registration for the user alone, beside the machine's. (Wine accepts a user's own type library
# and does not store it.)
user_class="${class_key/HKCR/HKCU\\Software\\Classes}"
check "the switch for the user's own registration leaves with exit code 0" 0 "$(run_switch -RegServerPerUser)"
look_at "$user_class\\LocalServer32"
check "the class is the user's too" "REG_SZ $windows_path" "$(default_value)"
check "the switch for its removal leaves with exit code 0" 0 "$(run_switch /unregserverperuser)"
check "the class is the user's no more" gone "$(key_is "$user_class\\LocalServer32")"
look_at "${class_key/HKCR/HKLM\\Software\\Classes}\\LocalServer32"
check "and still the machine's" "REG_SZ $windows_path" "$(default_value)"
wine_does reg delete "$user_key" /f >/dev/null
