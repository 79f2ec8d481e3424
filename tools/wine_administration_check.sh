# Sourced by wine_check.sh: the removal by hand and the start-up script that package/administration.md gives
# an administrator, run as they stand there. The service is not installed before and after. Other steps are
# not run: Wine's icacls, wevtutil and schtasks do nothing, and its sc knows no config.

setup=$WINEPREFIX/drive_c/setup
rm -rf "$setup"
mkdir -p "$setup"
# block TEXT: the commands that follow the paragraph with this text, as a batch file.
block() {
    awk -v text="$1" 'index($0, text) { found = 1 } !found { next }
        /^    / { print substr($0, 5) "\r"; listed = 1; next } listed { exit }' package/administration.md
}
block 'When the program can no longer be run' >"$setup/remove.bat"
block "needed, but the settings' keys only after" >"$setup/forget.bat"

batch() { run_wine cmd /c "C:\\setup\\$1.bat" >/dev/null 2>&1 || true; }
run_switch -Service >/dev/null
start_service >/dev/null
stop_service >/dev/null
check "there is nothing to restore" 0 "$(holvctl_ends restore | head -n 1 | cut -d : -f 1)"
batch remove
check "what is removed by hand is gone" "gone gone gone 5: The service is not installed on this PC." \
    "$(key_is "$app_id_key") $(key_is "$class_key") $(key_is "$type_library") $(holvctl_ends status | head -n 1)"
# Whatever the registration has made, and wherever: both views of the registry have the interfaces.
wine_does reg export 'HKLM\Software\Classes' 'C:\setup\classes.reg' /y >/dev/null
check "and nothing of it is left among the classes" "" "$(iconv -f UTF-16 -t UTF-8 "$setup/classes.reg" |
    grep -iE '^\[.*(HOLV|7A31C5E2|3E9F1B20|C4D72A19|9D4E2C71|5B0E8D34)' || true)"
check "the settings and the log stay" "there yes" "$(key_is 'HKLM\Software\Orbeq\Holv') $([ -e "$log" ] && echo yes)"
batch forget
check "until they are deleted" "gone gone no" \
    "$(key_is 'HKLM\Software\Orbeq\Holv') $(key_is "$source_key") $([ -e "$log" ] && echo yes || echo no)"

cp "$build/wine/HOLVService.exe" "$build/holvctl.exe" "$setup"
block 'A start-up script for a group policy' >"$setup/startup.bat"
rm "$installed/HOLVService.exe"
batch startup
await "the start-up script's service to run" $patience service_is RUNNING
check "the start-up script copies, installs and starts" RUNNING "$seen"
before=$(processes "$service_process" | head -n 1)
batch startup
await "the service that it puts in the place of a running one to run" $patience service_is RUNNING || true
check "and replaces a program that runs" "RUNNING by another process" \
    "$seen by $([ "$(processes "$service_process" | head -n 1)" = "$before" ] && echo the same || echo another) process"
stop_service >/dev/null
run_switch -UnregServer >/dev/null
