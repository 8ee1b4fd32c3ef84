# Sourced by ./test: collects what the sanitizers report, also from processes that are killed in a test.

# sanitizer_begin PRESET
sanitizer_begin() {
    sanitizer_reports="$PWD/build/$1/reports"
    rm -rf "$sanitizer_reports"
    mkdir -p "$sanitizer_reports"
    export ASAN_OPTIONS="log_path=$sanitizer_reports/asan:detect_stack_use_after_return=1"
    export LSAN_OPTIONS="suppressions=$PWD/tests/sanitizers/lsan.supp:print_suppressions=0"
    export UBSAN_OPTIONS="log_path=$sanitizer_reports/ubsan:print_stacktrace=1"
    export TSAN_OPTIONS="log_path=$sanitizer_reports/tsan:suppressions=$PWD/tests/sanitizers/tsan.supp:second_deadlock_stack=1"

    # The thread sanitizer's shadow does not fit beside the addresses of kernels that randomise more of them.
    if [ "$1" = tsan ] && setarch -R true 2>/dev/null; then
        export QUELTA_PREFIX='setarch -R' # for scripts/unit_tests.sh and scripts/end_to_end.sh
    fi
}

# sanitizer_end: fails if there is any report, and shows them.
sanitizer_end() {
    unset ASAN_OPTIONS LSAN_OPTIONS UBSAN_OPTIONS TSAN_OPTIONS QUELTA_PREFIX
    local reports=("$sanitizer_reports"/*)
    [ -e "${reports[0]}" ] || return 0
    head -n 60 "${reports[@]}"
    echo "${#reports[@]} reports in ${sanitizer_reports#"$PWD"/}"
    return 1
}
