# Sourced by the scripts at the root: installs the missing ones of the Debian packages named as
# arguments, and says so. Uses the network only if one is missing.

install_missing() {
    local missing=()
    local package
    for package in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$'; then
            missing+=("$package")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then return 0; fi

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then as_root=(sudo); fi
    echo "Installing: ${missing[*]}"
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# What building and running on the virtual PC takes.
build_packages=(perl g++ cmake ninja-build lld libgtest-dev libbenchmark-dev nlohmann-json3-dev
    libcli11-dev libedit-dev)
# What the Windows programs and their packages take.
windows_packages=(g++-mingw-w64-x86-64-posix mingw-w64-tools wixl msitools osslsigncode)

# Configures a preset unless it is, and builds the targets named (all of them without any).
build_preset() {
    local preset=$1
    shift
    local targets=()
    if [ $# -gt 0 ]; then targets=(--target "$@"); fi
    if [ ! -f "build/$preset/build.ninja" ]; then cmake --preset "$preset" >/dev/null; fi
    cmake --build --preset "$preset" "${targets[@]}" -- --quiet
}
