#!/usr/bin/env bash
# Shows the example device at work under orvo-supervisor: demo.sh BUILD_DIR [SOUND_FOLDER]
# Everything lies in a folder of its own; ends with 1 when a step did not show what it should.
set -uo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# The supervisor gives the services their time to end.
patience=8
# shellcheck source=examples/demofunctions.sh
source "$here/../demofunctions.sh"
need orvo-supervisor orvoctl orvo-sink media player settings streamer

for name in supervisor settings network media player stream cast; do
    if orvoctl ping "$name" >/dev/null 2>&1; then
        echo "demo: another process serves the name '$name' already" >&2
        exit 2
    fi
done

supervisor_pid=
watch_pid=
work=$(mktemp -d)
services="settings sink media player stream cast"

leave() {
    stop "$watch_pid"
    stop "$supervisor_pid"
    rm -rf "$work"
}
trap leave EXIT
trap 'exit 130' INT TERM

value() { orvoctl get "$1" value 2>/dev/null; }
# Waits until the value at the path is the one, and shows it.
becomes() { # <path> <value>
    local tries now
    for tries in $(seq 100); do
        now=$(value "$1")
        [ "$now" = "$2" ] && break
        sleep 0.1
    done
    printf '  %-16s %s\n' "$1" "$now"
    [ "$now" = "$2" ] || problem "$1 is not $2"
}
is() { # <path> <value>
    local now
    now=$(value "$1")
    printf '  %-16s %s\n' "$1" "$now"
    [ "$now" = "$2" ] || problem "$1 is not $2"
}
told() { orvoctl rows "$1:told" --role title -j | grep -o '"title"' | wc -l; }
state() { value "supervisor:services/$1/$2"; }

title "The device, as it is written down"
mkdir "$work/music"
cp "$sounds"/{bell,complete,alarm-clock-elapsed,phone-incoming-call}.oga "$work/music" || exit 1
sed "s|@WORK@|$work|g" "$here/device.json.in" >"$work/device.json"
printf '$ orvo-supervisor --check device.json\n'
orvo-supervisor --check "$work/device.json" || problem "the file is not right"
sed 's/"after": \["media"/"aftr": ["media"/' "$work/device.json" >"$work/broken.json"
printf '$ orvo-supervisor --check broken.json\n'
orvo-supervisor --check "$work/broken.json" 2>&1 | sed "s|$work/||"
[ "${PIPESTATUS[0]}" -eq 1 ] || problem "the broken file is taken"

title "All services start, each behind those that it depends on"
orvo-supervisor "$work/device.json" 2>"$work/log" >"$work/sink.log" &
supervisor_pid=$!
if ! orvoctl wait stream:volume --timeout 10000 || ! orvoctl wait cast:volume --timeout 10000; then
    printf 'FAILED: the device did not come up\n'
    cat "$work/log"
    exit 1
fi
for service in $services; do
    becomes "supervisor:services/$service/state" running
done
grep -E 'supervisor: INFO: .*: running' "$work/log" | sed 's/^/log | /'
pids=$(for service in $services; do state "$service" pid; done)

title "The player's volume goes from 0 to 50, that of stream from 0 to 100, and cast speaks in decibels"
becomes player:volume 20
becomes stream:volume 40
becomes cast:volume -27.9

title "The user of the streaming service moves its volume"
# What it moves right behind the device is kept back, and comes back in the steps of the device.
sleep 1
before=$(told stream)
expect 33 orvoctl set stream:volume 33
becomes player:volume 17
becomes cast:volume -32.2
# Longer than the time for which a side is not listened to.
sleep 1.2
echo "and it stays: 17 of 50 would be 34 of 100, but nobody tells it so"
is stream:volume 33
is player:volume 17
[ "$(told stream)" -eq "$before" ] || problem "the change came back to stream"

title "The user of the device moves its volume"
before=$(told stream)
printf '$ orvoctl watch player:volume &\n'
orvoctl watch player:volume >"$work/watch" &
watch_pid=$!
sleep 0.3
expect 41 orvoctl set player:volume 41
becomes stream:volume 82
becomes cast:volume -4.6
expect true orvoctl set player:mute on
becomes stream:mute true
becomes cast:mute true
sleep 1.2
stop "$watch_pid"
watch_pid=
echo "all that stream was told: $(($(told stream) - before)) messages"
[ "$(told stream)" -eq $((before + 2)) ] || problem "stream was not told the volume and the mute once each"
sed 's/^/watch | /' "$work/watch"
[ "$(cat "$work/watch")" = "17
41" ] || problem "the volume of the player moved more than once"
expect false orvoctl set player:mute off

title "A queue of tracks, and their samples at the sink"
expect 1 orvoctl invoke player:add '"media:track/alarm-clock-elapsed.oga"'
expect 2 orvoctl invoke player:add '"media:track/phone-incoming-call.oga"'
expect phone-incoming-call orvoctl rows player:queue --role id --role title
expect 1 orvoctl invoke player:play
becomes player:state playing
sleep 0.7
expect 2 orvoctl invoke player:next
becomes player:current 2
expect '' orvoctl invoke player:pause
is player:state paused
position=$(value player:position)
printf '  %-16s %s\n' player:position "$position"
expect 2 orvoctl invoke player:play
sleep 0.7
[ "$(value player:position)" -gt "$position" ] || problem "the position does not move"
[ -s "$work/heard.wav" ] || problem "the sink heard nothing"
echo "the sink has written $(stat -c %s "$work/heard.wav") bytes"

title "The player is killed and comes back, as loud as it was"
pid=$(state player pid)
printf '$ kill -KILL %s\n' "$pid"
kill -KILL "$pid" || problem "there is no player"
becomes supervisor:services/player/restarts 1
becomes supervisor:services/player/state running
[ "$(state player pid)" != "$pid" ] || problem "the process id is the same"
is supervisor:services/player/lastExit 'signal 9'
becomes player:volume 41
expect 66 orvoctl set stream:volume 66
becomes player:volume 33
pids="$pids $(state player pid)"

title "Another language: stream starts anew with it"
expect de orvoctl set settings:ui/language de
becomes supervisor:services/stream/restarts 1
becomes supervisor:services/stream/state running
becomes stream:volume 66
pids="$pids $(state stream pid)"

title "The network, by a form"
expect Key orvoctl rows settings:network --role title
expect '' orvoctl invoke settings:network/disconnect
is network:state/connected false
echo "cast lives on the network, and was stopped with it"
becomes supervisor:services/cast/restarts 1
pids="$pids $(state cast pid)"
expect Kitchen orvoctl set settings:network/name Kitchen
printf '$ orvoctl invoke settings:network/connect\n'
orvoctl invoke settings:network/connect 2>&1 && problem "it connects without a key"
expect secret123 orvoctl set settings:network/key secret123
expect '' orvoctl invoke settings:network/connect
is network:state/connected true

title "One service is stopped and started by hand"
expect '' orvoctl invoke supervisor:services/cast/stop
is supervisor:services/cast/state stopped
expect '' orvoctl invoke supervisor:services/cast/start
is supervisor:services/cast/state running
pids="$pids $(state cast pid)"

title "The end: all stop in reverse order"
lines=$(wc -l <"$work/log")
stop "$supervisor_pid"
status=$?
supervisor_pid=
tail -n "+$((lines + 1))" "$work/log" | grep -E ': stopp' | sed 's/^/log | /'
echo "orvo-supervisor ended with $status"
[ $status -eq 0 ] || problem "it did not end cleanly"
stopped=$(tail -n "+$((lines + 1))" "$work/log" | sed -n 's/.*INFO: \(.*\): stopped$/\1/p' | tr '\n' ' ')
[ "$stopped" = "cast stream player media sink settings " ] || problem "the order was: $stopped"
for pid in $pids; do
    kill -0 "$pid" 2>/dev/null && problem "process $pid is still there"
done
for name in supervisor settings network media player stream cast; do
    [ ! -e "/tmp/orvo-rpc-$name.socket" ] || problem "the socket of $name is still there"
done

[ "$failures" -eq 0 ] || sed 's/^/log | /' "$work/log"
conclude
