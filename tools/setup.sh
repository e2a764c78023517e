# Shared by run.sh and test.sh: installs the Debian packages the build needs, and configures and
# builds with CMake presets. Sourced, not run.

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

# Configures (once, or again when asked for other options) and builds a preset.
arnex_build() {
    local preset="$1"
    shift
    cmake --preset "$preset" "$@" >/dev/null
    cmake --build --preset "$preset"
}
