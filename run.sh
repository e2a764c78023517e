#!/usr/bin/env bash
# Builds Arnex and starts it. Extra arguments are passed to the program; without any, the demo project
# of firmware/ opens.
set -euo pipefail
cd "$(dirname "$0")"
. tools/setup.sh

arnex_install "${ARNEX_PACKAGES_BUILD[@]}"
arnex_build default

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
exec build/bin/arnex "${args[@]}"
