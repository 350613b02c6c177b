#!/bin/sh
# The demo: a fresh server on a fresh folder, found by discovery; an image sequence in and out of it, a contact
# sheet to look at. Nothing leaves this machine.
#   scripts/demo.sh BUILD
# BUILD is the build folder. Everything lands in BUILD/demo, which is emptied first.
set -eu

if [ $# -ne 1 ] || [ ! -d "$1" ]; then
    echo "usage: scripts/demo.sh BUILD" >&2
    exit 2
fi
build=$(cd "$1" && pwd)
work=$build/demo
ready_limit=30
stop_limit=10

program() {
    for candidate in "$build/bin/$1" "$build/$2/$1"; do
        if [ -x "$candidate" ]; then
            echo "$candidate"
            return
        fi
    done
    echo "demo.sh: $1 is not built in $build" >&2
    return 1
}
server=$(program vantreld vantrel/src/server)
demo=$(program vantrel_demo examples)
client=$(program vantrel vantrel/src/tools)

rm -rf "$work"
mkdir -p "$work/root"

# A discovery of its own: on loopback alone, on a port by which no facility's servers are found.
free_port() {
    port=$((20000 + $$ % 10000))
    in_use=$(sed 's/^[^:]*: *[0-9A-F]*:\([0-9A-F]*\) .*/\1/' /proc/net/udp)
    while printf '%s\n' "$in_use" | grep -q "^$(printf '%04X' "$port")$"; do port=$((port + 1)); done
    echo "$port"
}
cat >"$work/network.cfg" <<CFG
[Local]
UUID=$(cat /proc/sys/kernel/random/uuid)
[Interfaces]
Multicast=lo
[SelfDiscovery]
Port=$(free_port)
CFG
QD_NETWORK_CFG_FILE=$work/network.cfg
export QD_NETWORK_CFG_FILE

server_pid=
stop_server() {
    [ -n "$server_pid" ] || return 0
    pid=$server_pid
    server_pid=
    kill -TERM "$pid" 2>/dev/null || true
    # A server that does not end by itself is ended, so that the demo never hangs.
    (
        sleep "$stop_limit" &
        nap=$!
        trap 'kill "$nap"' TERM
        wait "$nap" && kill -KILL "$pid"
    ) >/dev/null 2>&1 &
    watchdog=$!
    status=0
    wait "$pid" || status=$?
    kill "$watchdog" 2>/dev/null || true
    return "$status"
}
trap 'stop_server || true' EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

# The ready line comes through a named pipe: the script waits for it and for nothing else.
mkfifo "$work/ready"
"$server" --root "$work/root" --port 0 --frame-port 0 --bind 127.0.0.1 \
    --display-name "demo server" --storage-id demo-storage >"$work/ready" 2>"$work/vantreld.log" &
server_pid=$!
line=$(timeout "$ready_limit" head -n 1 "$work/ready" || true)
rm -f "$work/ready"
port=$(printf '%s\n' "$line" | sed -n 's/^vantreld ready: node port \([0-9][0-9]*\), frame port [0-9][0-9]*$/\1/p')
if [ -z "$port" ]; then
    echo "demo.sh: the server did not start:" >&2
    cat "$work/vantreld.log" >&2
    exit 1
fi
echo "Started vantreld on node port $port, over $work/root"

echo "The servers that the command-line client finds:"
"$client" servers | sed 's/^/  /'
"$demo" demo-storage "$work"
echo "The clip, as the command-line client sees it:"
"$client" stat "$("$client" resolve demo-storage)" "/stor1/demo/Default Library/reel 1/turning ball" | sed 's/^/  /'

if ! stop_server; then
    echo "demo.sh: the server did not end cleanly; see $work/vantreld.log" >&2
    exit 1
fi
echo "Stopped the server. To look at: $work/contact-sheet.png"
