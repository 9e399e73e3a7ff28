#!/usr/bin/env bash
# run.sh BUILD-FOLDER - run the benchmarks that lie in a build folder
set -euo pipefail
build=$1
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
scratch=$(mktemp -d)

server=
stop() {
    [ -z "$server" ] || kill "$server" 2>/dev/null || true
    rm -rf "$scratch"
}
trap stop EXIT

echo '== codecs, digests, files, composition, settings'
"$build/bench/units_bench" --benchmark_min_time=0.1 --benchmark_out="$scratch/units.json" \
    --benchmark_out_format=json 2>/dev/null
status=0
python3 - "$scratch/units.json" <<'PYTHON' || status=1
import json
import sys

with open(sys.argv[1]) as file:
    times = {b["name"]: b["cpu_time"] for b in json.load(file)["benchmarks"]}
ratios = [times[f"base64_encode_lines_openssl/{size}"] / times[f"base64_encode_lines/{size}"]
          for size in (100, 10000, 10000000)]
print("Base64 with line breaks is " + ", ".join(f"{r:.2f}" for r in ratios) +
      " times as fast as OpenSSL for 100 bytes, 10 KB, 10 MB (more than 1.00)")
sys.exit(0 if min(ratios) > 1 else 1)
PYTHON

"$build/tools/zelieml-loopback" --port 0 --ready-file "$scratch/ready" >"$scratch/log" &
server=$!
for _ in $(seq 100); do
    [ -s "$scratch/ready" ] && break
    sleep 0.05
done
port=$(sed -n 's/^smtp 127.0.0.1://p' "$scratch/ready")
pop_port=$(sed -n 's/^pop3 127.0.0.1://p' "$scratch/ready")

echo
# Before anything is posted: the mailbox is empty, as receive_bench wants it.
echo '== receiving, one session for each mail'
"$build/bench/receive_bench" "$port" "$pop_port" 8000 || status=1

echo
echo '== system calls of receiving'
"$build/bench/receive_bench" "$port" "$pop_port" 100 fill
strace -c -f -o "$scratch/strace" "$build/bench/receive_bench" "$port" "$pop_port" 100 empty
sed -n 1,12p "$scratch/strace"
echo '(100 mails and one program start)'

echo
echo '== one message, end to end'
# The limit holds for message files in memory. On a disk it depends on the file system: one that
# has just deleted thousands of files a second makes new ones slowly, which no user's does.
if [ -d /dev/shm ]; then
    echo 'message files in memory:'
    TMPDIR=/dev/shm "$build/bench/post_bench" "$port" 2000 || status=1
    echo "message files in ${TMPDIR:-/tmp}:"
    "$build/bench/post_bench" "$port" 2000 || true
else
    "$build/bench/post_bench" "$port" 2000 || status=1
fi

# What starting the program costs drops out of the difference.
instructions() {
    valgrind --tool=callgrind --callgrind-out-file="$scratch/callgrind.$1" \
        "$build/bench/post_bench" "$port" "$1" library 2>&1 | sed -n 's/.*Collected : //p'
}
few=$(instructions 20)
many=$(instructions 120)
per_message=$(((many - few) / 100))
echo "eml_post_sync runs $per_message instructions a message in user mode (at most 120000)"
[ "$per_message" -le 120000 ] || status=1

echo
echo '== an engine'
"$build/bench/engine_bench" "$port" "${ZELIEML_BENCH_IDLE_SECONDS:-60}" || status=1

echo
echo '== system calls of one message'
strace -c -f -o "$scratch/strace" "$build/bench/post_bench" "$port" 100 library
sed -n 1,25p "$scratch/strace"
echo '(100 messages and one program start)'
cd "$root" && exit $status
