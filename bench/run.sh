#!/usr/bin/env bash
# run.sh BUILD-FOLDER - run the benchmarks that lie in a build folder
set -euo pipefail
build=$1
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
scratch=$(mktemp -d)

# A mail server runs on another machine: here its processor is not that of the client, where there
# are two. On one their work adds up, and which of the two it is changes from second to second.
processors=$(taskset -pc $$)
processors=${processors##* }
as_server=(taskset -c "${processors##*[,-]}")
as_client=(taskset -c "${processors%%[,-]*}")

# compare COMMAND... - with a bare client
compare() {
    "${as_client[@]}" "$@" && return
    if [ "${as_server[*]}" = "${as_client[*]}" ]; then
        echo 'this is one processor, and the limits are those of two'
    else
        status=1
    fi
}

server=
tls_server=
stop() {
    kill $server $tls_server 2>/dev/null || true
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

"${as_server[@]}" "$build/tools/zelieml-loopback" --port 0 --ready-file "$scratch/ready" \
    >"$scratch/log" &
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
compare "$build/bench/receive_bench" "$port" "$pop_port" 8000

echo
echo '== one message, end to end'
echo "message files in ${TMPDIR:-/tmp}:"
compare "$build/bench/post_bench" "$port" 2000 plain
echo 'with a login:'
compare "$build/bench/post_bench" "$port" 2000 login
echo 'a body of 20 MB:'
compare "$build/bench/post_bench" "$port" 9 large

if [ -x "$build/bench/tls_bench" ]; then
    mkdir "$scratch/tls"
    "${as_server[@]}" "$build/bench/tls_sink" "$scratch/tls" &
    tls_server=$!
    for _ in $(seq 100); do
        [ -e "$scratch/tls/ready" ] && break
        sleep 0.05
    done
    echo
    echo '== one message inside TLS'
    echo 'a mail of 1 KB:'
    "${as_client[@]}" "$build/bench/tls_bench" "$scratch/tls" 500 0
    echo 'a body of 20 MB:'
    "${as_client[@]}" "$build/bench/tls_bench" "$scratch/tls" 9 20000000
    kill "$tls_server"
    tls_server=
fi

echo
echo '== an engine'
"$build/bench/engine_bench" "$port" "${ZELIEML_BENCH_IDLE_SECONDS:-60}" || status=1

echo
echo '== the service, beside an engine'
"${as_client[@]}" "$build/bench/service_bench" "$build/tools/zelieml/zelieml" "$port" \
    "${ZELIEML_BENCH_IDLE_SECONDS:-60}" || status=1

echo
echo '== as work grows'
"$root/bench/growth.py" "$build" || status=1
exit $status
