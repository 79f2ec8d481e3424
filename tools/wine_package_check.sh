# Sourced by wine_check.sh: the package contains everything that an administrator needs, and the
# product.

package=$(ls "$build"/packages/Holv-*-x64.zip)
unpacked=$build/unpacked
rm -rf "$unpacked"
mkdir -p "$unpacked"
(cd "$unpacked" && cmake -E tar xf "$package")
check "the package is complete" \
    "HOLVService.exe administration.md defaults.reg events.md examples/holv.ps1 examples/switch.vbs holv.spdx.json holvctl.exe install.ps1 policies/Holv.admx policies/en-US/Holv.adml policy_refresh.xml uninstall.ps1 " \
    "$(cd "$unpacked"/Holv-* && find . -type f | sed 's/^..//' | sort | tr '\n' ' ')"
product=$(echo "$unpacked"/Holv-*/HOLVService.exe)
check "the packaged program does nothing on another vendor's processor" "1 without a service" \
    "$(run_wine "$product" -Service >/dev/null 2>&1; echo "$? with$([ -n "$(service_state)" ] || echo out) a service")"
size=$(stat -c %s "$product")
check "the packaged program is smaller than 1.5 MiB" yes \
    "$([ "$size" -lt $((3 << 19)) ] && echo yes || echo "no, $size bytes")"
if [ "$(key_is "$user_key")" = there ]; then wine_does reg delete "$user_key" /f >/dev/null; fi
wine_does reg import "$(dirname "$product")/defaults.reg" >/dev/null
look_at "$user_key"
check "its file of built-in settings sets nothing as it is" "" "$(value DoNotDisturbStart)"
sed 's/^;\(["[]\)/\1/' "$(dirname "$product")/defaults.reg" >"$unpacked/uncommented.reg"
wine_does reg import "$unpacked/uncommented.reg" >/dev/null
look_at "$user_key"
check "its values can be imported when they are uncommented" "REG_DWORD 0x528" \
    "$(value DoNotDisturbStart)"
wine_does reg delete "$user_key" /f >/dev/null
wine_does reg delete "${user_key%User}OEM" /f >/dev/null
