# Sourced by wine_check.sh: the real executable on a PC with speakers and the platform device. The
# speakers are a sound server's: its two sinks, which play nowhere, and its default. The device is that
# of tools/wine/platform_device.cpp.

add_value "$user_key" LoggingLevel REG_DWORD 6
mkdir -p "$pulse"
HOME=$pulse XDG_RUNTIME_DIR=$pulse pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no \
    -L "module-native-protocol-unix socket=$pulse/socket auth-anonymous=1" \
    -L "module-null-sink sink_name=speakers" -L "module-null-sink sink_name=headphones" \
    >"$pulse/output.txt" 2>&1 &
sound_server=$!
trap 'kill "$sound_server" 2>/dev/null || true; end_wine' EXIT
await "the sound server to listen" $patience test -S "$pulse/socket"

device_class='{d6e2a4c1-5b7f-4e39-9c0d-3f81b2a7e645}'
device_key='HKLM\SYSTEM\CurrentControlSet\Enum\ACPI\QRX5071'
interface_key="HKLM\\SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\$device_class"
interface="$interface_key\\##?#ACPI#QRX5071#0#$device_class"
requests=$WINEPREFIX/drive_c/platform_device.requests
rm -f "$requests" "$log"
cp "$build/wine/platform_device.sys" "$WINEPREFIX/drive_c/windows/system32/drivers/"
wine_does sc create HolvPlatform type= kernel start= demand \
    binpath= 'C:\windows\system32\drivers\platform_device.sys' >/dev/null
wine_does net start HolvPlatform >/dev/null
add_value "$device_key\\0" ClassGUID REG_SZ '{4d36e97d-e325-11ce-bfc1-08002be10318}'
add_value "$interface" DeviceInstance REG_SZ 'ACPI\QRX5071\0'
add_value "$interface\\#" SymbolicLink REG_SZ "\\\\?\\ACPI#QRX5071#0#$device_class"
add_value "$interface\\#\\Control" Linked REG_DWORD 1

# The program that lists the power requests lies where Windows has it.
listing=$WINEPREFIX/drive_c/windows/system32/powercfg.exe
cp "$build/wine/powercfg.exe" "$listing"
rm -f "$listing.told"

start_service >/dev/null
raise $active $normal $dnd $normal
stop_service >/dev/null
check "the device's driver gets the signature and the mode of each state, to the byte" \
    "$(printf ' 53 4e 53 4d %02x 00 00 00\n' 1 0 3 0)" \
    "$(od -An -v -tx1 -w8 "$requests" 2>&1)"

# says TEXT: how often the log has it.
says() { grep -acF "$1" "$log" || true; }
check "the sound system is registered with, and unregistered from" "1 1" \
    "$(says 'Register default audio device callback successful') $(
        says 'Unregister default audio device callback successful')"
check "each endpoint's callback is registered, and unregistered" "3 3" \
    "$(says 'Register audio control callback successful') $(
        says 'Unregister audio control callback successful')"
check "do-not-disturb mutes all, and normal use unmutes them" \
    "muted, muted, muted, not muted, not muted, not muted, " \
    "$(grep -aoE 'SetMute called on device .* with (not )?muted' "$log" | sed 's/.* with //; s/$/,/' |
        tail -n 6 | tr '\n' ' ')"

check "the listing of the power requests is asked for, and its lines are in the log" \
    "-requests; [DRIVER] Wine Audio Device, [PROCESS] \\Device\\Disk\\Music.exe, " \
    "$(tr -d '\r' <"$listing.told" | sort -u); $(
        grep -aoE '\[(DRIVER|PROCESS)\] [A-Za-z. \\]*[a-z]' "$log" | awk '!seen[$0]++' | sed 's/$/,/' | tr '\n' ' ')"
rm -f "$listing" "$listing.told"

wine_does net stop HolvPlatform >/dev/null
wine_does sc delete HolvPlatform >/dev/null
for key in "$device_key" "$interface_key" "$user_key"; do wine_does reg delete "$key" /f >/dev/null; done
kill "$sound_server"
wait "$sound_server" || true
trap end_wine EXIT
