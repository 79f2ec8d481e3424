#!/usr/bin/env bash
# Runs clang-tidy over one source file, as build/tidy's database has it compiled. A file that passed is
# left out until it, a header of ours that it includes, or the list of checks has changed; what passed
# is remembered beyond this checkout, in the user's cache.
# Usage, from the root: tools/tidy.sh FILE
set -euo pipefail

remembered=${XDG_CACHE_HOME:-$HOME/.cache}/holv/tidy
mkdir -p "$remembered"
mapfile -t read_files < <(g++ -std=c++20 -I. -MM "$1" | tr -d '\\' | tr -s ' ' '\n' | sed '1d;/^$/d')
passed=$remembered/$(cat .clang-tidy "${read_files[@]}" | sha256sum | cut -d ' ' -f 1)
if [ -f "$passed" ]; then exit 0; fi

clang-tidy -p build/tidy --quiet "$1" 2> >(grep -v 'warnings\? generated' >&2)
touch "$passed"
