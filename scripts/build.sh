# Sourced by ./run, ./test and ./bench: configures and builds one preset.

# build_preset PRESET [TARGET...]: everything without targets.
build_preset() {
    local preset=$1 log="build/$1.configure.log"
    shift
    mkdir -p build
    if [ ! -f "build/$preset/build.ninja" ] && ! cmake --preset "$preset" >"$log" 2>&1; then
        cat "$log" >&2
        return 1
    fi
    cmake --build "build/$preset" ${1:+--target "$@"}
}
