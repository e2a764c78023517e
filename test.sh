#!/usr/bin/env bash
# Builds Arnex with warnings as errors and runs every test through ctest, then the fuzzers and the device
# tests under the sanitizers. Prints the time of each phase at the end.
set -euo pipefail
cd "$(dirname "$0")"
. tools/setup.sh
trap arnex_times EXIT

# The build folder and flags of ./run.sh: what it built is reused as it is.
build_all() {
    arnex_configure default
    cmake --build --preset default
}

export QT_QPA_PLATFORM=offscreen

run_ctest() {
    ctest --test-dir build --output-on-failure -j "$(nproc)" --timeout 600
}

# Under AddressSanitizer and UndefinedBehaviorSanitizer only the fuzzers and the device tests are built;
# any sanitizer report ends the run with a failure.
build_asan() {
    arnex_configure asan
    cmake --build build-asan -j2 --target fuzz_program fuzz_script test_target
}

# The program file readers (ELF, Intel Hex, S-record): 200000 mutated inputs seeded from the target
# programs, in two halves on the two cores.
fuzz_program() {
    local pids=() pid seed
    for seed in 1 2; do
        UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 build-asan/tests/fuzz_program --runs 100000 --seed "$seed" &
        pids+=($!)
    done
    for pid in "${pids[@]}"; do wait "$pid"; done
}

# The script interpreter: 200000 generated and mutated scripts.
fuzz_script() {
    ASAN_OPTIONS=abort_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
        build-asan/tests/fuzz_script 200000
}

# The device tests with the leak check: every job's buffers are freed.
device_asan() {
    ARNEX_CHECK_ABORT=1 ASAN_OPTIONS=detect_leaks=1 build-asan/tests/test_target --gtest_brief=1
}

# The device thread under ThreadSanitizer: rings, events and memory access against the fake target, with
# the 100000-job stress run.
build_tsan() {
    arnex_configure tsan
    cmake --build build-tsan -j2 --target test_target
}

device_tsan() {
    ARNEX_CHECK_ABORT=1 TSAN_OPTIONS=halt_on_error=1 build-tsan/tests/test_target --gtest_brief=1
}

arnex_phase "install packages" arnex_install "${ARNEX_PACKAGES_BUILD[@]}" "${ARNEX_PACKAGES_TEST[@]}"
arnex_phase "configure and build" build_all
arnex_phase "ctest" run_ctest
arnex_phase "ASan+UBSan: build fuzzers and device tests" build_asan
arnex_phase "ASan+UBSan: fuzz program file readers" fuzz_program
arnex_phase "ASan+UBSan: fuzz script interpreter" fuzz_script
arnex_phase "ASan: device tests with leak check" device_asan
arnex_phase "TSan: build device tests" build_tsan
arnex_phase "TSan: device tests" device_tsan
