# Shared by run.sh and test.sh: installs the Debian packages the build needs, configures and builds with
# CMake presets, and times each phase. Sourced, not run.

ARNEX_PACKAGES_BUILD=(
    cmake ninja-build ccache g++ pkg-config
    qt6-base-dev libgl-dev
    libdwarf-dev libelf-dev libcapstone-dev librapidxml-dev zlib1g-dev
    gcc-arm-none-eabi libnewlib-arm-none-eabi binutils-arm-none-eabi
    qemu-system-arm
)
ARNEX_PACKAGES_TEST=(
    googletest libgtest-dev libbenchmark-dev
    libstdc++-arm-none-eabi-newlib newlib-source
    gdb-multiarch clang libclang-rt-14-dev
    xvfb xauth imagemagick
)

# Installs the packages of the given lists that are missing; quick when all are there.
arnex_install() {
    local missing=()
    local pkg
    for pkg in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
            missing+=("$pkg")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing: ${missing[*]}"
    local sudo=""
    if [ "$(id -u)" -ne 0 ]; then
        if command -v sudo >/dev/null 2>&1; then
            sudo="sudo"
        else
            echo "error: these packages are missing and installing them needs root: ${missing[*]}" >&2
            return 1
        fi
    fi
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# Configures a preset (quietly; again each time, so that presets and options take effect).
arnex_configure() {
    cmake --preset "$@" >/dev/null
}

# Phase times. arnex_phase <name> <command...> runs a command and notes how long it took; arnex_times
# prints the list, the running phase marked when a failure ends the script early.
ARNEX_START_US=${EPOCHREALTIME/./}
ARNEX_PHASE_NAMES=()
ARNEX_PHASE_US=()
ARNEX_PHASE_RUNNING=""
ARNEX_PHASE_START_US=0

arnex_phase() {
    ARNEX_PHASE_RUNNING="$1"
    shift
    ARNEX_PHASE_START_US=${EPOCHREALTIME/./}
    "$@"
    ARNEX_PHASE_NAMES+=("$ARNEX_PHASE_RUNNING")
    ARNEX_PHASE_US+=($((${EPOCHREALTIME/./} - ARNEX_PHASE_START_US)))
    ARNEX_PHASE_RUNNING=""
}

_arnex_mmss() {
    local s=$((($1 + 500000) / 1000000))
    printf "%3d:%02d" $((s / 60)) $((s % 60))
}

arnex_times() {
    local i
    echo "Time per phase (wall clock, m:ss):"
    for i in "${!ARNEX_PHASE_NAMES[@]}"; do
        printf "  %-52s %s\n" "${ARNEX_PHASE_NAMES[$i]}" "$(_arnex_mmss "${ARNEX_PHASE_US[$i]}")"
    done
    if [ -n "$ARNEX_PHASE_RUNNING" ]; then
        printf "  %-52s %s\n" "$ARNEX_PHASE_RUNNING (failed)" \
            "$(_arnex_mmss $((${EPOCHREALTIME/./} - ARNEX_PHASE_START_US)))"
    fi
    printf "  %-52s %s\n" "total" "$(_arnex_mmss $((${EPOCHREALTIME/./} - ARNEX_START_US)))"
}
