#!/usr/bin/env bash
# Builds Arnex and starts it. Extra arguments are passed to the program; without any, the demo project
# of firmware/ opens.
set -euo pipefail
cd "$(dirname "$0")"
. tools/setup.sh
trap "arnex_times >&2" EXIT

# Only what the program needs: itself, the probe library, the plug-ins and the demo program. The build
# folder and the flags are those of ./test.sh, which then reuses all of it; once ./test.sh has configured
# its tests there, they stay configured (and unbuilt here).
build_program() {
    if grep -qs '^ARNEX_BUILD_TESTS:BOOL=ON' build/CMakeCache.txt; then
        arnex_configure default
    else
        arnex_configure program
    fi
    cmake --build build --target arnex_bundle
}

arnex_phase "install packages" arnex_install "${ARNEX_PACKAGES_BUILD[@]}"
arnex_phase "configure and build the program" build_program

args=("$@")
# Without arguments the demo project opens: the demo program on the emulated board, ready to connect.
if [ "${#args[@]}" -eq 0 ]; then
    args=("$PWD/build/firmware/demo.tvproj")
fi
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ] && [ -z "${QT_QPA_PLATFORM:-}" ]; then
    export QT_QPA_PLATFORM=offscreen
    has_exec=0
    for a in "${args[@]}"; do
        case "$a" in -exec|--exec|-EXEC) has_exec=1 ;; esac
    done
    if [ "$has_exec" -eq 0 ]; then
        echo "No display: Arnex starts offscreen, prints its Console here and ends."
        echo "For a window, run ./run.sh in a desktop session, or under a virtual display: xvfb-run ./run.sh"
        echo "To drive it without a window: ./run.sh -exec \"<console line>\" ... -quit"
        args+=(-quit)
    fi
fi
trap - EXIT
arnex_times >&2
exec build/bin/arnex "${args[@]}"
