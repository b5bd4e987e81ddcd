# Configuring and building, with progress. Sourced by zel.

# configure PRESET [-DNAME=VALUE...]: does nothing when the build folder is there and has these values
configure() {
    preset=$1
    shift
    configured=build/$preset/build.ninja
    if [ -f "$configured" ]; then
        for option; do
            name=${option#-D}
            grep -q "^${name%%=*}:[A-Z]*=${name#*=}\$" "build/$preset/CMakeCache.txt" || configured=
        done
        [ -z "$configured" ] || return 0
    fi
    echo "Configuring the build in build/$preset"
    log=$(mktemp)
    cmake --preset "$preset" "$@" >"$log" 2>&1 || {
        cat "$log" >&2
        rm -f "$log"
        return 1
    }
    rm -f "$log"
}

# build PRESET [TARGET...]: builds all, or only these targets
build() {
    preset=$1
    shift
    [ $# -gt 0 ] || set -- all
    if [ "$(ninja -C "build/$preset" -n "$@" 2>/dev/null | tail -n 1)" = "ninja: no work to do." ]; then
        return 0
    fi
    echo "Building in build/$preset; what was compiled before is taken from the compiler cache"
    if [ -t 1 ]; then
        NINJA_STATUS='   %f of %t  ' cmake --build "build/$preset" --target "$@"
    else
        { NINJA_STATUS='@%f/%t ' cmake --build "build/$preset" --target "$@" 2>&1 || echo @failed; } | awk '
            $1 == "@failed" { exit 1 }
            /^@[0-9]/ {
                split(substr($1, 2), count, "/")
                if (count[1] * 10 / count[2] >= tenths + 1) {
                    tenths = int(count[1] * 10 / count[2])
                    printf "   %d of %d\n", count[1], count[2]
                    fflush()
                }
                next
            }
            { print; fflush() }'
    fi
}
