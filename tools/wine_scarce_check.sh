# Sourced by wine_check.sh: the real executable on a PC whose disk is full, and on one whose battery
# runs out. Both are this check's alone, by its own mounts; the service is installed before and after.

add_value "$user_key" LoggingLevel REG_DWORD 6

# The disk has one page, which the log fills. It is mounted above the service's folders, since Wine
# takes a mounted folder for a link, and in a link the service makes no log.
disk=${log%/*/*/*}
mount -t tmpfs -o size=4k,mode=755 holv_disk "$disk"
check "on a full disk the program runs to its end" "" "$(run_service)"
check "and the log has what there was room for, from its first line on" "4096 bytes, the first line" \
    "$(stat -c %s "$log") bytes, $(head -n 1 "$log" | grep -q ': ====*= \[L=5\]' && echo the first line)"
umount -l "$disk"

# charge PERCENT: of the battery.
supplies=/sys/class/power_supply
charge() { echo $(($1 * 40000)) >"$supplies/BAT0/charge_now"; }
on_mains() {
    echo "$1" >"$supplies/AC/online"
    if [ "$1" = 1 ]; then echo Charging; else echo Discharging; fi >"$supplies/BAT0/status"
}
mount -t tmpfs -o size=64k holv_power $supplies
mkdir $supplies/{AC,BAT0}
echo Mains >$supplies/AC/type
echo Battery >$supplies/BAT0/type
echo 1 >$supplies/BAT0/present
echo 4000000 | tee $supplies/BAT0/charge_full >$supplies/BAT0/charge_full_design
echo 12000000 >$supplies/BAT0/voltage_now
echo 1000000 >$supplies/BAT0/current_now
on_mains 0
charge 80

timer_battery=11
requests=$installed/power_requests.log
rm -f "$requests" "$log"
start_service >/dev/null
raise $active
cp "$requests" build/wine_requests.txt
charge 7
raise $timer_battery
await "the low battery to be published" $patience holvctl_tells 'the battery is low' || true
told=$seen
raise $normal
on_mains 1
stop_service >/dev/null
umount -l $supplies
says() { grep -acF "$1" "$log" || true; }
check "never-sleep mode on battery holds the PC awake" $'create: Orbeq(R) Holv Technology\nset away\nset system' \
    "$(tr -d '\r' <build/wine_requests.txt | sort -u)"
check "a battery that runs out is seen once, and ends the requests" "1 1 $(printf 'clear away\nclear system\n')" \
    "$(says '80 battery remaining, threshold set to 15') $(says '7 battery remaining, threshold set to 15') $(
        tail -n +$(($(wc -l <build/wine_requests.txt) + 1)) "$requests" | tr -d '\r' | head -n 2)"
check "holvctl tells of the battery" "$(
    echo "The PC is in never-sleep mode, but may sleep: the battery is low."
    echo "Requests   The service holds no power request: the battery is low."
    echo "Power      battery, battery at 7 %"
)" "$(grep -E '^(The PC|Requests|Power)' <<<"$told")"
wine_does reg delete "$user_key" /f >/dev/null
