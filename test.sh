#!/usr/bin/env bash
# Builds Arnex with warnings as errors and runs every test through ctest.
set -euo pipefail
cd "$(dirname "$0")"
. tools/setup.sh

arnex_install "${ARNEX_PACKAGES_BUILD[@]}" "${ARNEX_PACKAGES_TEST[@]}"
arnex_build default -DARNEX_WERROR=ON

export QT_QPA_PLATFORM=offscreen
ctest --test-dir build --output-on-failure -j "$(nproc)" --timeout 600

# The script interpreter's fuzzer, long, under AddressSanitizer and UndefinedBehaviorSanitizer: only its target
# is built in the sanitizer tree, and any sanitizer report ends the run with a failure.
cmake --preset asan -DARNEX_WERROR=ON >/dev/null
cmake --build build-asan --target fuzz_script
ASAN_OPTIONS=abort_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 ./build-asan/tests/fuzz_script 200000
