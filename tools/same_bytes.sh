#!/usr/bin/env bash
# Builds and packs the Windows programs from two copies of the source in two folders, without a compiler
# cache, and compares the packages byte for byte. Usage: tools/same_bytes.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source tools/install.sh
install_missing "${build_packages[@]}" "${windows_packages[@]}"

export SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)} CCACHE_DISABLE=1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for copy in "$work/one" "$work/another/folder"; do
    mkdir -p "$copy"
    git ls-files -z | xargs -0 cp --parents -t "$copy"
    (cd "$copy" && source tools/install.sh && build_preset windows HOLVService holvctl)
    "$copy/installer/make_packages" "$copy/build/windows"
done
diff -r "$work"/{one,another/folder}/build/windows/packages
for program in HOLVService holvctl; do
    cmp "$work"/{one,another/folder}/"build/windows/$program.exe"
done
echo "Two builds of $(git rev-parse --short HEAD) give the same $(ls "$work/one/build/windows/packages" | tr '\n' ' ')"
