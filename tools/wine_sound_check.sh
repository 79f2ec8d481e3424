# Sourced by wine_check.sh: the real executable on a PC with speakers. They are a sound server's: its
# two sinks, which play nowhere, and its default.

add_value "$user_key" LoggingLevel REG_DWORD 6
mkdir -p "$pulse"
HOME=$pulse XDG_RUNTIME_DIR=$pulse pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no \
    -L "module-native-protocol-unix socket=$pulse/socket auth-anonymous=1" \
    -L "module-null-sink sink_name=speakers" -L "module-null-sink sink_name=headphones" \
    >"$pulse/output.txt" 2>&1 &
sound_server=$!
trap 'kill "$sound_server" 2>/dev/null || true; end_wine' EXIT
await "the sound server to listen" $patience test -S "$pulse/socket"

rm -f "$log"
start_service >/dev/null
raise $dnd $normal
stop_service >/dev/null
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

wine_does reg delete "$user_key" /f >/dev/null
kill "$sound_server"
wait "$sound_server" || true
trap end_wine EXIT
