# shellcheck shell=bash
# Sourced by ./test: collects the reports of the sanitizers in files, so that those of killed
# processes count too.

# sanitizer_begin PRESET: sets the environment for the tests of this preset.
sanitizer_begin() {
    sanitizer_reports="$PWD/build/$1/reports"
    rm -rf "$sanitizer_reports"
    mkdir -p "$sanitizer_reports"
    export ASAN_OPTIONS="log_path=$sanitizer_reports/asan:detect_stack_use_after_return=1"
    export LSAN_OPTIONS="suppressions=$PWD/tests/sanitizers/lsan.supp:print_suppressions=0"
    export UBSAN_OPTIONS="log_path=$sanitizer_reports/ubsan:print_stacktrace=1"
    local tsan_suppressions="$PWD/tests/sanitizers/tsan.supp"
    export TSAN_OPTIONS="log_path=$sanitizer_reports/tsan:suppressions=$tsan_suppressions:second_deadlock_stack=1"

    # Kernels that randomise more address bits place programs where the thread sanitizer needs its
    # shadow memory.
    if [ "$1" = tsan ] && setarch -R true 2>/dev/null; then
        export QUELTA_PREFIX='setarch -R' # for scripts/unit_tests.sh and scripts/end_to_end.sh
    fi
}

# sanitizer_end: shows the reports, and fails if there are any.
sanitizer_end() {
    unset ASAN_OPTIONS LSAN_OPTIONS UBSAN_OPTIONS TSAN_OPTIONS QUELTA_PREFIX
    local reports=("$sanitizer_reports"/*)
    [ -e "${reports[0]}" ] || return 0
    head -n 60 "${reports[@]}"
    echo "${#reports[@]} reports in ${sanitizer_reports#"$PWD"/}"
    return 1
}
