#!/usr/bin/env bash
# Shows the media service at work on real sound files: demo.sh BUILD_DIR [SOUND_FOLDER]
# Works on a copy of the files, in a folder of its own; ends with 1 when a step did not show what it should.
set -uo pipefail

patience=5
# shellcheck source=examples/demofunctions.sh
source "$(dirname "${BASH_SOURCE[0]}")/../demofunctions.sh"
need media tagfile orvoctl

media_pid=
watch_pid=
work=$(mktemp -d)
music=$work/music

leave() {
    stop "$watch_pid"
    stop "$media_pid"
    rm -rf "$work"
}
trap leave EXIT
trap 'exit 130' INT TERM

run() {
    printf '$ %s\n' "$*"
    "$@"
}
# Waits until a line of the watch matches; only lines behind the first $3 count.
watched() { # <extended expression> <what> [lines to leave out]
    local tries
    for tries in $(seq 100); do
        if tail -n "+$((${3:-0} + 1))" "$work/watch" | grep -qE "$1"; then
            tail -n "+$((${3:-0} + 1))" "$work/watch" | sed 's/^/watch | /'
            return 0
        fi
        sleep 0.1
    done
    sed 's/^/watch | /' "$work/watch"
    problem "the watch did not show $2"
}
watch_lines() { wc -l <"$work/watch"; }

start_media() {
    printf '$ media --config config.json %s &\n' "$music"
    media --config "$work/config.json" "$music" 2>>"$work/media.log" &
    media_pid=$!
    if ! run orvoctl wait media:library --timeout 5000 || ! kill -0 "$media_pid" 2>/dev/null; then
        printf 'FAILED: the service did not come up\n'
        cat "$work/media.log"
        exit 1
    fi
}
tag() { # <file> <artist> <album> <track> <title> <year>
    tagfile "$1" "ARTIST=$2" "ALBUM=$3" "TRACKNUMBER=$4" "TITLE=$5" "DATE=$6" || problem "tags of $1"
}

title "Sound files, copied from $sounds"
mkdir "$music"
cp "$sounds"/*.og[ga] "$music" || exit 1
tag "$music/bell.oga" "The Alerts" "Close Calls" 1 "Bell" 2008
tag "$music/complete.oga" "The Alerts" "Close Calls" 2 "Complete" 2008
tag "$music/message.oga" "The Alerts" "Close Calls" 10 "Message" 2008
tag "$music/alarm-clock-elapsed.oga" "Early Birds" "Up and Away" 1 "Six o'Clock" 2007
tag "$music/phone-incoming-call.oga" "Early Birds" "Calling" 1 "Somebody Rings" 2009
tag "$music/camera-shutter.oga" "Snapshot" "Black and White" 3 "Shutter" 1999
mv "$music/camera-shutter.oga" "$work/shutter.oga"
tracks=$(find "$music" -type f | wc -l)
printf 'no sound\n' >"$music/broken.ogg"
echo "$tracks files, and a broken one"

title "The service, in a process of its own"
start_media
expect "$tracks" orvoctl invoke media:library/rescan
sed 's/^/media | /' "$work/media.log"
grep -q "skipped .*broken.ogg" "$work/media.log" || problem "the broken file is not told"

title "All that it serves"
run orvoctl tree media: >"$work/tree" || problem "tree"
head -8 "$work/tree"
printf '  ... %s lines in all, at the end:\n' "$(wc -l <"$work/tree")"
tail -3 "$work/tree"
grep -q "media:settings/sortBy" "$work/tree" || problem "the settings are missing"

title "The first rows, sorted by artist, album, track and title"
expect "Somebody Rings" orvoctl rows media:library 0 4 --role title --role mediaData

title "A value beyond its limit"
expect '"max":"3"' orvoctl get media:settings/sortBy
expect 3 orvoctl set media:settings/sortBy 99
expect audio orvoctl rows media:library 0 2 --role title --role type
expect 0 orvoctl set media:settings/sortBy -5

title "The home list, the recent files behind a link, and a search"
expect "media:home/recent" orvoctl rows media:home
expect 3 orvoctl set media:config/recent/size 3
expect "phone-incoming-call.oga" orvoctl rows media:home/recent --role id --role timestamp
expect "Bell" orvoctl rows 'media:results?query=alerts calls' --role title --role path

title "A watch, and a file that is copied into the folder"
printf '$ orvoctl watch media:library --rows &\n'
orvoctl watch media:library --rows >"$work/watch" 2>&1 &
watch_pid=$!
watched '[0-9]+ rows' 'the present rows'
before=$(watch_lines)
run cp "$work/shutter.oga" "$music/shutter.oga"
watched '^\+2$' 'the row of the file' "$before"

title "The service is killed and started again, the watch goes on"
before=$(watch_lines)
printf '$ kill -KILL %s\n' "$media_pid"
stop "$media_pid" KILL
start_media
watched '^reset' 'the service coming back' "$before"
expect 3 orvoctl get media:config/recent/size value
expect $((tracks + 1)) orvoctl invoke media:library/rescan
before=$(watch_lines)
run rm "$music/shutter.oga"
watched '^-2$' 'the row going' "$before"

title "A path that does not exist"
printf '$ orvoctl get media:nothing\n'
orvoctl get media:nothing 2>"$work/error"
status=$?
cat "$work/error"
echo "exit status $status"
[ $status -eq 1 ] || problem "the exit status is not 1"
grep -q "does not exist" "$work/error" || problem "the error is not told"

title "A name that is served already"
printf '$ media %s\n' "$music"
media "$music" && problem "a second service took the name"
expect Media orvoctl get media: title

title "The end"
stop "$watch_pid"
watch_pid=
stop "$media_pid"
status=$?
echo "media ended with $status"
[ $status -eq 0 ] || problem "the service did not end cleanly"
media_pid=
[ ! -e /tmp/orvo-rpc-media.socket ] || problem "its socket is still there"

conclude
