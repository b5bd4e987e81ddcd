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
    echo "Building in build/$preset"
    if [ -t 1 ]; then
        NINJA_STATUS='   %f of %t  ' cmake --build "build/$preset" --target "$@"
    else
        { NINJA_STATUS='@%f/%t ' cmake --build "build/$preset" --target "$@" 2>&1 || echo @failed; } | tell_progress
    fi
}

# Prints what Ninja says, but of its progress every tenth only; status 1 after a line "@failed".
tell_progress() {
    told=0
    while IFS= read -r line; do
        case $line in
        @failed) return 1 ;;
        @[0-9]*)
            count=${line%% *} total=${line%% *}
            count=${count#@} count=${count%/*} total=${total#*/}
            if [ $((count * 10 / total)) -gt "$told" ]; then
                told=$((count * 10 / total))
                echo "   $count of $total"
            fi
            ;;
        *) printf '%s\n' "$line" ;;
        esac
    done
}
