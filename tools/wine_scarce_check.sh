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

plug_battery 80
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
unplug_battery
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
