#!/usr/bin/env bash
# Measures the service on the kernel's USB beside a program of libusb alone that sends the same requests: boots
# the guest of tests/guest, in which the simulator's probes are plugged into the kernel. Takes four minutes.
# Exits with 1 when the requests differ, or a ratio is below 0.9.
set -euo pipefail
cd "$(dirname "$0")/.."
./build.sh release all wirefox_bench_usb >/dev/null
guest=build/release/guest
tests/guest/prepare "$guest"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
status=0
LIMIT=540 tests/guest/boot "$guest" "$PWD/bench/kernel_usb_guest" "$PWD/build/release" >"$log" 2>&1 || status=$?
cat "$guest/out/table" 2>/dev/null || { cat "$log"; exit 1; }
exit $status
