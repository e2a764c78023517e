#!/usr/bin/env bash
# Builds Arnex with warnings as errors and runs every test through ctest.
set -euo pipefail
cd "$(dirname "$0")"
. tools/setup.sh

arnex_install "${ARNEX_PACKAGES_BUILD[@]}" "${ARNEX_PACKAGES_TEST[@]}"
arnex_build default -DARNEX_WERROR=ON

export QT_QPA_PLATFORM=offscreen
ctest --test-dir build --output-on-failure -j "$(nproc)" --timeout 600
