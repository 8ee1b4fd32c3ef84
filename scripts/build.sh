# shellcheck shell=bash
# Sourced by ./run, ./test, ./bench and scripts/check-tidy.sh: configures and builds presets.

# The sources of a build tree's cache. CMake keeps cached values when a preset changes, even those
# that the preset no longer sets.
preset_sources=(CMakePresets.json cmake/mingw-w64.cmake)

# configure_preset PRESET: configures build/PRESET unless it is configured and its preset unchanged.
configure_preset() {
    local tree=build/$1 log=build/$1.configure.log sum
    sum=$(cat "${preset_sources[@]}" | sha256sum)
    [ -f "$tree/build.ninja" ] && [ "$sum" = "$(cat "$tree/preset.sha256" 2>/dev/null)" ] && return 0

    mkdir -p "$tree"
    rm -rf "$tree/CMakeCache.txt" "$tree/CMakeFiles" "$tree/preset.sha256"
    if ! cmake --preset "$1" >"$log" 2>&1; then
        cat "$log" >&2
        return 1
    fi
    echo "$sum" >"$tree/preset.sha256"
}

# build_preset PRESET [TARGET...]: builds everything, or only these targets.
build_preset() {
    local preset=$1
    shift
    configure_preset "$preset" || return
    cmake --build "build/$preset" ${1:+--target "$@"}
}
