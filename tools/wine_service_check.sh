# Sourced by wine_check.sh: the real executable installs itself, and Wine's service manager starts
# and stops it. Leaves it installed.

service_state() {
    wine sc query HOLVService 2>/dev/null | tr -d '\r' | sed -nE 's/^ +STATE +: [0-9] +([A-Z_]+).*$/\1/p'
}
default_value() {
    wine_does reg query "$1" /ve 2>/dev/null | sed -nE 's/^ +\(.*\) +(REG_[A-Z_]+) +(.*)$/\1 \2/p'
}
# until_state STATE: waits for the state, ten seconds at most, and prints the state then.
until_state() {
    for _ in $(seq 50); do
        if [ "$(service_state)" = "$1" ]; then break; fi
        sleep 0.2
    done
    service_state
}
service_runs() { pgrep -f 'Orbeq.Holv.HOLVService\.exe' >/dev/null; }
# The process ends a little after the service, and a plain server a second after its last client.
until_gone() {
    for _ in $(seq 100); do
        if ! service_runs; then break; fi
        sleep 0.1
    done
    service_runs && echo "still there" || echo "gone"
}
start_service() {
    wine_does net start HOLVService >/dev/null
    until_state RUNNING
}
stop_service() {
    wine_does net stop HOLVService >/dev/null
    until_gone
}

app_id='{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}'
app_id_key="HKCR\\AppID\\$app_id"
class_key='HKCR\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}'
services_key='HKLM\SYSTEM\CurrentControlSet\Services\HOLVService'

check "the switch for installation leaves with exit code 0" 0 \
    "$(run_switch /service)"
check "the AppID is that of a service" "REG_SZ HOLVService" \
    "$(registry_value "$app_id_key" LocalService)"
check "the executable has the AppID" "REG_SZ $app_id" \
    "$(registry_value 'HKCR\AppID\HOLVService.EXE' AppID)"
check "the class is served by the executable" "REG_SZ $windows_path" \
    "$(default_value "$class_key\\LocalServer32")"
check "the class has the AppID" "REG_SZ $app_id" "$(registry_value "$class_key" AppID)"
check "the program's name leads to the class" "REG_SZ ${class_key#HKCR?CLSID?}" \
    "$(default_value 'HKCR\HOLVAgentLib.HOLVAgentLib\CLSID')"
check "the service's program is quoted" "REG_SZ \"$windows_path\"" \
    "$(registry_value "$services_key" ImagePath)"
check "the service starts with the system" "REG_DWORD 0x2" "$(registry_value "$services_key" Start)"
check "the service depends on RPCSS" "REG_MULTI_SZ RPCSS" \
    "$(registry_value "$services_key" DependOnService)"
check "the service is described" "REG_SZ Orbeq(R) Holv Technology" \
    "$(registry_value "$services_key" Description)"

rm -f "$log"
wine reg add "$user_key" /v LoggingLevel /t REG_DWORD /d 6 /f >/dev/null
asked=$(date +%s%N)
check "the service manager starts the service" RUNNING "$(start_service)"
start_ms=$((($(date +%s%N) - asked) / 1000000))
sleep 1
idle=/proc/$(pgrep -f 'Orbeq.Holv.HOLVService\.exe' | head -n 1)/status
idle_kib=$(sed -nE 's/^VmRSS:[[:space:]]+([0-9]+) kB/\1/p' "$idle")
idle_threads=$(sed -nE 's/^Threads:[[:space:]]+//p' "$idle")
check "its process ends when the service manager stops it" gone "$(stop_service)"
check "the service manager sees it stopped" STOPPED "$(until_state STOPPED)"
check "its log tells its life in order" \
    "HOLV service global events are created, HOLV service state machine starts, SERVICE_CONTROL_STOP, HOLV State Machine Exited, Service stopped, " \
    "$(grep -aoE 'HOLV service [a-z ]+|SERVICE_CONTROL_STOP|HOLV State Machine Exited|Service stopped' "$log" | grep -v stopping | sed 's/ *$/,/' | tr '\n' ' ')"
