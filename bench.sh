#!/usr/bin/env bash
# Measures what performance was designed in, each figure as a ratio to something compared in the same
# run. Exits with 1 when a target is missed.
set -euo pipefail
cd "$(dirname "$0")"
.ci/install-packages binutils srecord
./build.sh release all wirefox_bench wirefox_bench_server >/dev/null

bin=$PWD/build/release
scratch=$(mktemp -d)
bench_pid=
cleanup() {
  [ -z "$bench_pid" ] || kill "$bench_pid" 2>/dev/null || true
  wait || true
  rm -rf "$scratch"
}
trap cleanup EXIT

install_in() {  # FOLDER PROGRAM: an installation of its own
  mkdir -p "$1/bin"
  cp "$2" "$1/bin/"
  cp service/wfxusb.ini firmware/*.hex firmware/*.fpga "$1/bin/"
}

status=0
"$bin/bench/wirefox_bench" heading
"$bin/bench/wirefox_bench" inside "$scratch" || status=1

install_in "$scratch/instant" "$bin/bench/wirefox_bench_server"
export WIREFOX_HOME=$scratch/instant
"$scratch/instant/bin/wirefox_bench_server" -RegServer
"$bin/bench/wirefox_bench" calls || status=1

install_in "$scratch/bench" "$bin/bin/TzWirefoxService"
export WIREFOX_HOME=$scratch/bench
"$bin/bin/wfxsim" --socket "$scratch/bench/sim.socket" >/dev/null &
bench_pid=$!
export WIREFOX_BUS=sim:$scratch/bench/sim.socket
until "$bin/bin/wfxsim" ctl --socket "$scratch/bench/sim.socket" list >/dev/null 2>&1; do sleep 0.1; done
"$scratch/bench/bin/TzWirefoxService" -RegServer
"$bin/bench/wirefox_bench" through "$scratch/bench/bin/TzWirefoxService" || status=1
kill "$bench_pid"
wait "$bench_pid" || true

# A chain with an FPGA, lent to tools.
rm "$scratch/bench/sim.socket" 2>/dev/null || true
"$bin/bin/wfxsim" --bench demo --socket "$scratch/bench/sim.socket" >/dev/null &
bench_pid=$!
until "$bin/bin/wfxsim" ctl --socket "$scratch/bench/sim.socket" list >/dev/null 2>&1; do sleep 0.1; done
"$bin/bin/wfx" hold >/dev/null &
hold_pid=$!
until "$bin/bin/wfx" list 2>/dev/null | grep -qx WFX0001; do sleep 0.1; done
coproc serve { exec "$bin/bin/wfx" serve WFX0001 --clock FREQ_A_48_0 --xvc 0 --json; }
read -r listening <&"${serve[0]}"
port=$(sed -n 's/.*127\.0\.0\.1:\([0-9]*\).*/\1/p' <<<"$listening")
"$bin/bench/wirefox_bench" xvc "$port" || status=1
kill -INT "$serve_PID"
wait "$serve_PID" || status=1
kill -INT "$hold_pid"
exit $status
