# Sourced by wine_check.sh: the real executable on a PC with speakers and the platform device.

add_value "$user_key" LoggingLevel REG_DWORD 6
plug_speakers
plug_device
plug_listing
rm -f "$log"
start_service >/dev/null
raise $active $normal $dnd $normal
stop_service >/dev/null
check "the device's driver gets the signature and the mode of each state, to the byte" \
    "$(printf ' 53 4e 53 4d %02x 00 00 00\n' 1 0 3 0)" \
    "$(device_heard)"

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
    "-requests; Wine Audio Device, Film.exe, HOLVService.exe, " \
    "$(tr -d '\r' <"$listing.told" | sort -u); $(
        grep -aoE '\[(DRIVER|PROCESS)\] [A-Za-z0-9. \]*[a-z]' "$log" | sed 's/.*[]\] *//; s/$/,/' |
            awk '!seen[$0]++' | tr '\n' ' ')"
unplug_listing
unplug_device
unplug_speakers
wine_does reg delete "$user_key" /f >/dev/null
