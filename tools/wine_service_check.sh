# Sourced by wine_check.sh: the real executable installs itself, and Wine's service manager starts
# and stops it. Leaves it installed.

app_id='{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}'
app_id_key="HKCR\\AppID\\$app_id"
class_key='HKCR\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}'
services_key='HKLM\SYSTEM\CurrentControlSet\Services\HOLVService'

check "the switch for installation leaves with exit code 0" 0 \
    "$(run_switch /service)"
look_at "$app_id_key"
check "the AppID is that of a service" "REG_SZ HOLVService" "$(value LocalService)"
look_at 'HKCR\AppID\HOLVService.EXE'
check "the executable has the AppID" "REG_SZ $app_id" "$(value AppID)"
look_at "$class_key\\LocalServer32"
check "the class is served by the executable" "REG_SZ $windows_path" "$(default_value)"
look_at "$class_key"
check "the class has the AppID" "REG_SZ $app_id" "$(value AppID)"
look_at 'HKCR\HOLVAgentLib.HOLVAgentLib\CLSID'
check "the program's name leads to the class" "REG_SZ ${class_key#HKCR?CLSID?}" "$(default_value)"
look_at "$services_key"
check "the service's program is quoted" "REG_SZ \"$windows_path\"" "$(value ImagePath)"
check "the service starts with the system" "REG_DWORD 0x2" "$(value Start)"
check "the service depends on RPCSS" "REG_MULTI_SZ RPCSS" "$(value DependOnService)"
check "the service is described" "REG_SZ Orbeq(R) Holv Technology" "$(value Description)"

rm -f "$log"
add_value "$user_key" LoggingLevel REG_DWORD 6
asked=$(date +%s%N)
check "the service manager starts the service" RUNNING "$(start_service)"
start_ms=$((($(date +%s%N) - asked) / 1000000))
await "the service to wait for events" $patience log_says 'HOLV State Machine initialized'
idle=/proc/$(processes "$service_process" | head -n 1)/status
idle_kib=$(sed -nE 's/^VmRSS:[[:space:]]+([0-9]+) kB/\1/p' "$idle")
idle_threads=$(sed -nE 's/^Threads:[[:space:]]+//p' "$idle")
check "its process ends when the service manager stops it" gone "$(stop_service)"
await "HOLVService to be STOPPED" $patience service_is STOPPED || true
check "the service manager sees it stopped" STOPPED "$seen"
check "its log tells its life in order" \
    "HOLV service global events are created, HOLV service state machine starts, SERVICE_CONTROL_STOP, HOLV State Machine Exited, Service stopped, " \
    "$(grep -aoE 'HOLV service [a-z ]+|SERVICE_CONTROL_STOP|HOLV State Machine Exited|Service stopped' "$log" | grep -v stopping | sed 's/ *$/,/' | tr '\n' ' ')"
