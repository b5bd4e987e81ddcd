# What ./zel says about itself. Sourced by zel.

usage() {
    cat <<'TEXT'
usage: ./zel COMMAND [--help]

  demo             the main job on a simulated analyzer, end to end
  run              a simulated analyzer that stays up, to try programs on
  test [preset]    every test; ends with "N passed, N failed, N skipped"
  build [preset]   builds; the preset is release unless named (pc, debug,
                   asan, tsan, fuzz, arm)
  format           whether the sources are formatted
  lint             formatter and linter, as warnings that are errors
  bench [name...]  the benchmarks: ratios to peers measured in the same run,
                   and how costs grow; compares runs
  fuzz [pc] [secs] what reads from outside under libFuzzer, each
  soak [minutes]   a PC and ZELApp without pause; leaks and drifts fail
  image COMMAND    update files: make, inspect, verify, extract, diff, publish,
                   serve, stick
  package [pc]     the Debian packages, and whether they are sound
  help             this table
TEXT
}

# explain COMMAND: what stands behind --help
explain() {
    case $1 in
    run) python -m bench.run --help ;;
    soak) python -m bench.soak --help ;;
    bench) python -m benchmarks.options ;;
    demo) cat <<'TEXT' ;;
usage: ./zel demo [gateway]

Builds the service and shows its main job on a simulated analyzer, step by
step: a PC finds the analyzer and registers, a patient result and a control
result arrive there as HL7 and are marked as sent, and the software is updated
from a USB stick, by the PC and from an update server. Then the PC's side is
built, and its gateway brings a result to a laboratory's system; with gateway
only that is shown. Ends by itself, with status 1 when a step did not happen.
TEXT
    test) cat <<'TEXT' ;;
usage: ./zel test [release|pc|debug|asan|tsan|arm|pc-asan|pc-tsan]

Builds everything and runs every test: unit tests, the service on a simulated
analyzer, and other HL7 parsers against it. pc does it with zelpc, asan and
tsan under the sanitizers, arm in an emulator; pc-asan and pc-tsan run zelpc's
own tests under the sanitizers. What cannot run on this machine is named and
counted as skipped. The last line is "N passed, N failed, N skipped".
TEXT
    build) cat <<'TEXT' ;;
usage: ./zel build [release|pc|debug|asan|tsan|fuzz|arm|pc-asan|pc-tsan|pc-fuzz]

Builds everything into build/PRESET; the service is build/PRESET/bin/ZELRmUp.
pc adds zelpc, the PC's side, which needs more packages.
TEXT
    format) cat <<'TEXT' ;;
usage: ./zel format

Says which lines are not as clang-format would have them; changes nothing.
TEXT
    lint) cat <<'TEXT' ;;
usage: ./zel lint

Checks the format and runs clang-tidy over src/ and host/.
TEXT
    fuzz) cat <<'TEXT' ;;
usage: ./zel fuzz [pc] [SECONDS]

Gives what reads from the network, a stick, an update server or the settings
to libFuzzer, each for SECONDS (60 unless given); with pc what of zelpc reads
from outside. What it finds is put below build/fuzz/found or
build/pc-fuzz/found.
TEXT
    package) cat <<'TEXT' ;;
usage: ./zel package [pc]

Makes the Debian packages in build/package and checks them; with pc that of
zelpc, the PC's side, in build/package-pc.
TEXT
    *) refuse "there is no command '$1'; ./zel help lists them" ;;
    esac
}

# check_arguments COMMAND MOST KNOWN [ARGUMENT...]: at most MOST arguments, each one of the words KNOWN or a number
check_arguments() {
    checked=$1 most=$2 known=$3
    shift 3
    for argument; do
        case $argument in
        -*) refuse "$checked has no option '$argument'; see ./zel $checked --help" ;;
        esac
        case " $known " in
        *" $argument "*) ;;
        *" NUMBER "*)
            case $argument in
            *[!0-9]* | "") refuse "$checked takes a number, not '$argument'; see ./zel $checked --help" ;;
            esac
            ;;
        *) refuse "$checked does not know '$argument'; see ./zel $checked --help" ;;
        esac
    done
    [ $# -le "$most" ] || refuse "$checked takes no more than $most of these: $*; see ./zel $checked --help"
}

# check_options MODULE [ARGUMENT...]: what the module's own parser says, before anything is built for it
check_options() {
    python - "$@" <<'TEXT' || exit 2
import importlib, sys
try:
    module = importlib.import_module(sys.argv.pop(1))
except ImportError:  # what it needs is not installed yet; it will check them itself
    sys.exit(0)
module.parser().parse_args()
TEXT
}

refuse() {
    say "zel: $*" >&2
    exit 2
}
