# What ./zel installs, and what it says where it cannot. Sourced by zel.

compiler="g++ cmake ninja-build libspdlog-dev libfmt-dev libpugixml-dev libboost-dev libsqlite3-dev"
zelpc="libcli11-dev nlohmann-json3-dev libtomlplusplus-dev librabbitmq-dev libssl-dev"
bench="python3 python3-rich python3-hl7 unzip zip"
build_wanted=ccache
test_needed="libgtest-dev libgmock-dev python3-pytest"
test_wanted="python3-pytest-xdist libfaketime tshark socat proot"

# say TEXT...: one message, never wider than 80 columns
say() {
    echo "$*" | fold -s -w 79
}

# say_command TEXT...: a command that can be typed as it stands
say_command() {
    echo "$*" | fold -s -w 70 | sed -e 's/ *$//' -e '$!s/$/ \\/' -e '1s/^/   /' -e '2,$s/^/      /'
}

fail() {
    say "zel: $*" >&2
    exit 1
}

# missing PACKAGE...: prints those that are not installed
missing() {
    command -v dpkg-query >/dev/null || fail "this needs Debian's packages, and dpkg is not here"
    for package; do
        case $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) in
        installed) ;;
        *) printf '%s ' "$package" ;;
        esac
    done
}

# Sets `root` to what runs a command as root; status 1 and `why` when nothing does.
become_root() {
    root=
    [ "$(id -u)" -ne 0 ] || return 0
    root=sudo
    if ! command -v sudo >/dev/null; then
        why="you are not root, and there is no sudo"
    elif sudo -n true 2>/dev/null || [ -t 0 ]; then
        return 0
    else
        why="you are not root, and sudo asks for a password"
    fi
    return 1
}

apt() {
    # shellcheck disable=SC2086
    $root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 -o Acquire::Retries=1 \
        -o Acquire::http::Timeout=20 -o Acquire::https::Timeout=20 "$@" >>"$apt_log" 2>&1
}

# apt_install PACKAGE...: status 1 and `why` when they cannot be had
apt_install() {
    become_root || return 1
    apt_log=$(mktemp)
    say "Installing from Debian's packages, once, which may take minutes:"
    echo "$*" | fold -s -w 76 | sed "s|^|   |"
    apt update || true
    status=0
    apt install -y --no-install-recommends "$@" || {
        status=1
        why=$(sed -n 's/^E: //p' "$apt_log" | tail -n 1)
        if grep -qE 'resolve|[Cc]ould not connect|Unable to connect|timed out|Failed to fetch' "$apt_log"; then
            why="Debian's package servers cannot be reached"
        fi
    }
    rm -f "$apt_log"
    return $status
}

# provide NEEDED WANTED: installs those packages that are missing; ends without a needed one, goes on without a wanted one
provide() {
    # shellcheck disable=SC2086
    all=$(missing $1 $2)
    [ -n "$all" ] || return 0
    # shellcheck disable=SC2086
    apt_install $all && return 0
    # shellcheck disable=SC2086
    needed=$(missing $1)
    if [ -n "$needed" ]; then
        # One that this Debian does not have must not keep the others away.
        # shellcheck disable=SC2086
        if [ "$needed" = "$all" ] || [ "${why#Unable to locate}" = "$why" ] || ! apt_install $needed; then
            say "zel: $why. These packages are missing; as root, type:" >&2
            say_command "apt-get install $needed" >&2
            exit 1
        fi
    fi
    # shellcheck disable=SC2086
    say "Going on without $(missing $2)($why)."
}

# What makes a simulated analyzer: bubblewrap, or proot where namespaces are refused.
sandbox_packages() {
    if [ "${ZEL_SANDBOX:-bubblewrap}" = bubblewrap ] && unshare --user --net true 2>/dev/null; then
        echo "bubblewrap iproute2"
    else
        echo proot
    fi
}

# Sandboxes are set up in more ways than a look at the kernel tells.
provide_sandbox() {
    [ "${ZEL_SANDBOX:-bubblewrap}" = bubblewrap ] || return 0
    bwrap --unshare-all --uid 0 --gid 0 --ro-bind / / --proc /proc true 2>/dev/null || provide "" proot
}

# unpack NAME PACKAGE...: puts what lies in the packages below build/NAME; nothing of them is installed or started.
# Status 1 when they cannot be had, or do not pass `checked`, a command that runs there.
unpack() {
    folder=build/$1
    shift
    rm -rf "$folder.new"
    mkdir -p "$folder.new"
    if (cd "$folder.new" && apt-get -qq -o Acquire::Retries=1 -o Acquire::http::Timeout=20 -o APT::Sandbox::User= \
        download "$@" && for package in *.deb; do dpkg-deb -x "$package" . || exit; done && rm ./*.deb && $checked) \
        >/dev/null 2>&1; then
        rm -rf "$folder"
        mv "$folder.new" "$folder"
        return 0
    fi
    rm -rf "$folder.new"
    return 1
}

# A real update server. Its Debian package would serve this machine's port 80 from now on, so it is only unpacked.
provide_nginx() {
    if [ -x /usr/sbin/nginx ] || [ -x build/nginx/usr/sbin/nginx ]; then
        return 0
    fi
    echo "Unpacking nginx into build/nginx; nothing of it is installed or started"
    checked="usr/sbin/nginx -v"
    unpack nginx nginx ||
        say "Going on without nginx, which cannot be had here: the bench's own server serves the updates."
}

# A real message broker, which would be started with the machine if it were installed. Its programs are told where
# they are.
provide_rabbit() {
    provide "" amqp-tools
    if [ -x /usr/lib/rabbitmq/bin/rabbitmq-server ] || [ -x build/rabbitmq/usr/lib/rabbitmq/bin/rabbitmq-server ]; then
        return 0
    fi
    echo "Unpacking rabbitmq-server into build/rabbitmq; nothing of it is installed or started"
    erlang=$(apt-cache depends --recurse --no-recommends --no-suggests --no-conflicts --no-breaks --no-replaces \
        --no-enhances rabbitmq-server 2>/dev/null | grep '^erlang' || true)
    place="s|=/usr/lib/erlang\$|=$PWD/build/rabbitmq/usr/lib/erlang|"
    checked="sed -i $place usr/lib/erlang/bin/erl usr/lib/erlang/erts-*/bin/erl"
    # shellcheck disable=SC2086
    unpack rabbitmq rabbitmq-server $erlang ||
        say "Going on without rabbitmq-server, which cannot be had here: what needs a broker is skipped."
}

# Two of the HL7 parsers that the benchmarks compare with run on Node; the product knows nothing of it. An npm that
# does not come from a Debian package serves as well.
provide_node() {
    if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
        provide "" "nodejs npm ca-certificates"
    fi
}
