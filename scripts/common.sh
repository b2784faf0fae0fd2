# Sourced by the other scripts: the root of the tree, and steps whose output is shown only if they fail.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
log=$(mktemp)
trap 'rm -f "$log"' EXIT

# run TITLE COMMAND...: one line, with the time that the step took.
run() {
    local title=$1 start=$SECONDS
    shift
    if "$@" >"$log" 2>&1; then
        printf '%-28s ok  %4d s\n' "$title" $((SECONDS - start))
    else
        local status=$?
        cat "$log" >&2
        printf '%-28s FAILED\n' "$title" >&2
        return $status
    fi
}

# build PRESET [TARGET...]: configures and builds into build/PRESET.
build() {
    local preset=$1
    shift
    run "configure $preset" cmake --preset "$preset"
    run "build $preset" cmake --build "build/$preset" ${1:+--target "$@"}
}

# tests PRESET: ctest with its closing lines.
tests() {
    run "test $1" ctest --preset "$1"
    sed -n '/tests passed/,$p' "$log"
}

if [ -z "${CMAKE_CXX_COMPILER_LAUNCHER:-}" ] && command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
