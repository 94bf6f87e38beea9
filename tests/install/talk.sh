#!/bin/sh
# Runs the service $1 beside the client $2; ends with the client's result.
"$1" &
service=$!
timeout 30 "$2" 2>&1
result=$?
kill $service
exit $result
