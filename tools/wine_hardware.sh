# Sourced by wine_check.sh: the hardware that a script gives the PC under Wine for a while, and takes from
# it again: speakers, the platform device, a battery, and the program that lists the power requests.

# forget KEY: removes a registry key that an earlier run may have left.
forget() {
    if [ "$(key_is "$1")" = there ]; then wine_does reg delete "$1" /f >/dev/null; fi
}

# The speakers are a sound server's: its two sinks, which play nowhere, and its default.
pulse=$PWD/build/wine_pulse
export PULSE_SERVER=unix:$pulse/socket
pulse_key='HKCU\Software\Wine\Drivers\winepulse.drv'
# Wine lists the endpoints that it has seen before by their ids, in which it draws a number for each sink and
# its monitor; here each has one that is always the same.
declare -A endpoint_bytes=([0,headphones]=31 [0,speakers]=32 [1,speakers.monitor]=33 [1,headphones.monitor]=34)
plug_speakers() {
    local endpoint
    forget "$pulse_key"
    for endpoint in "${!endpoint_bytes[@]}"; do
        add_value "$pulse_key\\devices\\$endpoint" guid REG_BINARY \
            "$(printf "%.0s${endpoint_bytes[$endpoint]}" {1..16})"
    done
    mkdir -p "$pulse"
    rm -f "$pulse/socket"
    HOME=$pulse XDG_RUNTIME_DIR=$pulse pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no \
        -L "module-native-protocol-unix socket=$pulse/socket auth-anonymous=1" \
        -L "module-null-sink sink_name=speakers" -L "module-null-sink sink_name=headphones" \
        >"$pulse/output.txt" 2>&1 &
    sound_server=$!
    trap 'kill "$sound_server" 2>/dev/null || true; end_wine' EXIT
    await "the sound server to listen" $patience test -S "$pulse/socket"
}
# choose_speakers VALUE SINK: makes a sink the default output, or the one for voices.
choose_speakers() {
    local byte=${endpoint_bytes[0,$2]}
    local two=$byte$byte
    add_value "$pulse_key" "$1" REG_SZ "{0.0.0.00000000}.{$two$two-$two-$two-$two-$two$two$two}"
}
unplug_speakers() {
    kill "$sound_server"
    wait "$sound_server" || true
    trap end_wine EXIT
}

# The device is that of tools/wine/platform_device.cpp, whose driver keeps the requests that it is sent.
device_class='{d6e2a4c1-5b7f-4e39-9c0d-3f81b2a7e645}'
device_key='HKLM\SYSTEM\CurrentControlSet\Enum\ACPI\QRX5071'
interface_key="HKLM\\SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\$device_class"
device_requests=$WINEPREFIX/drive_c/platform_device.requests
plug_device() {
    local interface="$interface_key\\##?#ACPI#QRX5071#0#$device_class"
    rm -f "$device_requests"
    if run_wine sc query HolvPlatform >/dev/null 2>&1; then wine_does sc delete HolvPlatform >/dev/null; fi
    cp "$build/wine/platform_device.sys" "$WINEPREFIX/drive_c/windows/system32/drivers/"
    wine_does sc create HolvPlatform type= kernel start= demand \
        binpath= 'C:\windows\system32\drivers\platform_device.sys' >/dev/null
    wine_does net start HolvPlatform >/dev/null
    add_value "$device_key\\0" ClassGUID REG_SZ '{4d36e97d-e325-11ce-bfc1-08002be10318}'
    add_value "$interface" DeviceInstance REG_SZ 'ACPI\QRX5071\0'
    add_value "$interface\\#" SymbolicLink REG_SZ "\\\\?\\ACPI#QRX5071#0#$device_class"
    add_value "$interface\\#\\Control" Linked REG_DWORD 1
}
unplug_device() {
    local key
    wine_does net stop HolvPlatform >/dev/null
    wine_does sc delete HolvPlatform >/dev/null
    for key in "$device_key" "$interface_key"; do wine_does reg delete "$key" /f >/dev/null; done
}
# The requests that the driver got, a line of bytes for each.
device_heard() { od -An -v -tx1 -w8 "$device_requests" 2>&1; }

# The battery is this check's alone, by a mount of its own, where the system allows it one.
supplies=/sys/class/power_supply
# charge PERCENT: of the battery.
charge() { echo $(($1 * 40000)) >"$supplies/BAT0/charge_now"; }
on_mains() {
    echo "$1" >"$supplies/AC/online"
    if [ "$1" = 1 ]; then echo Charging; else echo Discharging; fi >"$supplies/BAT0/status"
}
# plug_battery PERCENT: a PC that runs on it.
plug_battery() {
    mount -t tmpfs -o size=64k holv_power $supplies
    mkdir $supplies/{AC,BAT0}
    echo Mains >$supplies/AC/type
    echo Battery >$supplies/BAT0/type
    echo 1 >$supplies/BAT0/present
    echo 4000000 | tee $supplies/BAT0/charge_full >$supplies/BAT0/charge_full_design
    echo 12000000 >$supplies/BAT0/voltage_now
    echo 1000000 >$supplies/BAT0/current_now
    on_mains 0
    charge "$1"
}
unplug_battery() { umount -l $supplies; }

# The program that lists the power requests lies where Windows has it.
listing=$WINEPREFIX/drive_c/windows/system32/powercfg.exe
plug_listing() {
    cp "$build/wine/powercfg.exe" "$listing"
    rm -f "$listing.told"
}
unplug_listing() { rm -f "$listing" "$listing.told"; }
