#!/usr/bin/env bash
# Builds Arnex with warnings as errors and runs every test through ctest.
set -euo pipefail
cd "$(dirname "$0")"
. tools/setup.sh

arnex_install "${ARNEX_PACKAGES_BUILD[@]}" "${ARNEX_PACKAGES_TEST[@]}"
arnex_build default -DARNEX_WERROR=ON

export QT_QPA_PLATFORM=offscreen
ctest --test-dir build --output-on-failure -j "$(nproc)" --timeout 600

# Fuzzing under AddressSanitizer and UndefinedBehaviorSanitizer: only the fuzz targets are built in the
# sanitizer tree, and any sanitizer report ends the run with a failure.
cmake --preset asan -DARNEX_WERROR=ON >/dev/null
cmake --build build-asan -j2 --target fuzz_program fuzz_script

# The program file readers (ELF, Intel Hex, S-record): 200000 mutated inputs seeded from the target
# programs, in two halves on the two cores.
fuzz_pids=()
for seed in 1 2; do
    UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 build-asan/tests/fuzz_program --runs 100000 --seed "$seed" &
    fuzz_pids+=($!)
done
for pid in "${fuzz_pids[@]}"; do wait "$pid"; done

# The script interpreter: 200000 generated and mutated scripts.
ASAN_OPTIONS=abort_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 ./build-asan/tests/fuzz_script 200000

# The device thread under ThreadSanitizer: rings, events and memory access against the fake target,
# with the 100000-job stress run.
cmake --preset tsan -DARNEX_WERROR=ON >/dev/null
cmake --build build-tsan -j2 --target test_target
TSAN_OPTIONS=halt_on_error=1 ./build-tsan/tests/test_target --gtest_brief=1

# The same tests under AddressSanitizer with its leak check: every job's buffers are freed.
cmake --build build-asan -j2 --target test_target
ASAN_OPTIONS=detect_leaks=1 ./build-asan/tests/test_target --gtest_brief=1
