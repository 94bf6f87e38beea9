# shellcheck shell=bash
# What the demos share; sourced by them with their arguments, BUILD_DIR [SOUND_FOLDER], and $patience set. Leaves the
# programs in $PATH, and counts in $failures the steps that failed.

if [ $# -lt 1 ] || [ $# -gt 2 ]; then
    echo "usage: demo.sh BUILD_DIR [SOUND_FOLDER]" >&2
    exit 2
fi
bin=$(cd "$1" && pwd)/bin || exit 2
PATH=$bin:$PATH
# shellcheck disable=SC2034 # for the demos
sounds=${2:-/usr/share/sounds/freedesktop/stereo}
failures=0

need() { # <program...>
    local program
    for program in "$@"; do
        if [ ! -x "$bin/$program" ]; then
            echo "demo: $bin/$program is not built" >&2
            exit 2
        fi
    done
}

# Stops what the demo started, by its id; what does not heed the signal within $patience seconds is killed.
# shellcheck disable=SC2154 # the demos set it
stop() { # <pid> [signal]
    local tries
    [ -n "$1" ] || return 0
    kill "-${2:-TERM}" "$1" 2>/dev/null
    for tries in $(seq 0 $((patience * 10))); do
        kill -0 "$1" 2>/dev/null || break
        [ "$tries" -lt $((patience * 10)) ] || kill -KILL "$1"
        sleep 0.1
    done
    wait "$1" 2>/dev/null
}

title() { printf '\n== %s\n' "$*"; }
problem() {
    printf 'FAILED: %s\n' "$*"
    failures=$((failures + 1))
}
# Runs, shows the output and looks for a text in it.
expect() { # <text> <command...>
    local text=$1 output status
    shift
    printf '$ %s\n' "$*"
    output=$("$@" 2>&1)
    status=$?
    printf '%s\n' "$output"
    [ $status -eq 0 ] || problem "it ended with $status"
    grep -qF -- "$text" <<<"$output" || problem "nowhere: $text"
}
# Ends the demo by what its steps showed.
conclude() {
    if [ "$failures" -gt 0 ]; then
        printf '\n%s steps failed\n' "$failures"
        exit 1
    fi
    printf '\nAll steps showed what they should.\n'
}
