# Sourced by wine_check.sh: what holvctl says of the real service. Its features and the interval are
# the business of wine_client_check.sh. The service is a plain server before, and installed after.

history=${log%/*}/History
check "the service is installed again" 0 "$(run_switch -Service)"
register_for_any_language
rm -rf "$history"
check "holvctl tells a service that does not run" "4: The service has stopped: Windows alone decides when this PC sleeps." \
    "$(holvctl_ends status)"
start_service >/dev/null
await "normal use to be published" $patience holvctl_tells 'normal use'

# json MEMBER...: of what holvctl prints, the values of these members; objects within by dots.
json() {
    perl -MJSON::PP -e '
        my $all = decode_json(join "", <STDIN>);
        for my $path (@ARGV) {
            my $value = $all;
            $value = ref $value eq "ARRAY" ? $value->[$_] : $value->{$_} for split /\./, $path;
            print defined $value ? "$value\n" : "null\n";
        }' "$@"
}
watched=$PWD/build/wine_watched.txt
timeout $patience wine "$installed/holvctl.exe" watch 1 >"$watched" 2>/dev/null &
watcher=$!
await "holvctl to watch" $patience grep -q S0_NORMAL "$watched"
raise $active
wait "$watcher" || true
check "holvctl tells a change as it happens" \
    "S0_NORMAL, HOLV_ACTIVE  The PC is in never-sleep mode: it is awake, and its user is not there., " \
    "$(tr -d '\r' <"$watched" | sed -E 's/^[-0-9]+ [0-9:]+  //; 1s/ .*//; s/$/,/' | tr '\n' ' ')"
check "holvctl tells the state to programs" "1 running HOLV_ACTIVE held Power saver Balanced 1" \
    "$(holvctl status --json | json schema service state requests plan.active.name plan.user.name \
        power.mains | tr '\n' ' ' | sed 's/ $//')"
check "holvctl tells why" "$(
    echo "The PC is in never-sleep mode: it is awake, and its user is not there."
    echo "To let it sleep: holvctl set never-sleep off, or set sleep-in-hours on for the do-not-disturb hours. The user's return ends never-sleep mode by itself."
)" "$(holvctl why | sed -n '1p;$p')"
raise $normal
await "the user's plan to be active again" $patience holvctl_tells "Balanced, the user's"
stop_service >/dev/null
check "holvctl reports the day from the service's history" "the active plan is Power saver, the active plan is Balanced, " \
    "$(holvctl report --days 1 | sed -n 's/.*  \(the active plan is .*\)/\1,/p' | tr '\n' ' ')"
check "the report to programs has the event log's end" "1 history 0 0 0" \
    "$(holvctl report --days 1 --json | json schema days.0.source torn_lines event_log.records event_log.error |
        tr '\n' ' ' | sed 's/ $//')"
holvctl report --days 1 --html 'C:\report.html' >/dev/null
check "the report's page has its picture, and is whole" "<svg </html>" \
    "$(grep -o '<svg' "$WINEPREFIX/drive_c/report.html" | head -n 1) $(
        tail -n 1 "$WINEPREFIX/drive_c/report.html" | grep -o '</html>')"
