# Sourced by the scripts beside it, from any current directory: leaves the shell in the project's root.
# shellcheck shell=bash
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [ -t 2 ] && [ -z "${NO_COLOR:-}" ]; then
    bold=$'\e[1m' red=$'\e[31m' plain=$'\e[0m'
else
    bold='' red='' plain=''
fi

# One line about what happens next; to stderr, so that a script's output stays its result.
say() { printf '%s==> %s%s\n' "$bold" "$*" "$plain" >&2; }
fail() {
    printf '%s==> %s%s\n' "$red" "$*" "$plain" >&2
    exit 1
}

# Compilers at once; one per processor unless ORVO_JOBS says otherwise.
jobs=${ORVO_JOBS:-$(nproc)}

# Calls scripts/setup where a package is missing; quick and silent otherwise.
need_packages() {
    local missing
    missing=$(scripts/setup --missing)
    [ -n "$missing" ] || return 0
    say "installing ${missing//$'\n'/ }"
    scripts/setup >&2
}

configure() { # <preset>
    say "configuring $1"
    cmake --preset "$1" >&2
}

# Configures and builds; all of it when no target is named.
build() { # <preset> [target...]
    local preset=$1
    shift
    configure "$preset"
    say "building $preset"
    cmake --build --preset "$preset" --parallel "$jobs" ${1:+--target "$@"} >&2
}
