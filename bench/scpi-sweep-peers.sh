#!/usr/bin/env bash
# One full sweep of 10,001 points over loopback, command to values, against
# the simulated analyzer: through the library (its VISA binding on the
# stand-in libvisa.so, its sweep functions) and through Debian's pyvisa with
# pyvisa-py in pyvisa's fastest pattern (one query, query_binary_values).
# Prints the best times and the ratio. Installs python3-pyvisa and
# python3-pyvisa-py from Debian when they are missing. Uses build-rel.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${HVX_BENCH_BUILD:-$root/build-rel}
points=${HVX_SWEEP_POINTS:-10001}
rounds=${HVX_SWEEP_ROUNDS:-50}
work=$(mktemp -d)
sim_pid=""
cleanup() {
  if [ -n "$sim_pid" ]; then kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  sudo=(sudo)
fi
missing=()
for package in python3-pyvisa python3-pyvisa-py; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "scpi-sweep-peers: installing ${missing[*]}" >&2
  export DEBIAN_FRONTEND=noninteractive
  "${sudo[@]}" apt-get update -qq
  "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# A folder that is configured already (HVX_BENCH_BUILD) is used as it is.
[ -f "$build/build.ninja" ] ||
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DHVX_BUILD_TESTS=OFF >/dev/null
ninja -C "$build" -j2 HalvexAPI halvex-sim hvx_visa_standin >/dev/null
g++ -O2 -std=c++20 -I"$root/include" "$root/bench/peers/SweepOurs.cpp" \
    -L"$build/src" -lHalvexAPI -lfmt -Wl,-rpath,"$build/src" -o "$work/sweep-ours"

# The simulator answers at once (no interrupt window), on its own port.
"$build/sim/halvex-sim" scpi --port 0 --interrupt-window-ms 0 >"$work/sim.out" 2>&1 &
sim_pid=$!
for _ in $(seq 100); do
  grep -q 'listening on' "$work/sim.out" 2>/dev/null && break
  sleep 0.1
done
port=$(sed -n 's/.*listening on 127\.0\.0\.1:\([0-9]*\).*/\1/p' "$work/sim.out")
[ -n "$port" ] || { echo "scpi-sweep-peers: the simulator did not start" >&2; cat "$work/sim.out" >&2; exit 1; }
resource="TCPIP0::127.0.0.1::$port::SOCKET"

export XDG_DATA_HOME="$work/data" HOME="$work"
read -r ours ours_count < <(LD_LIBRARY_PATH="$build/sim/visa" "$work/sweep-ours" "$resource" "$points" "$rounds")
# Debian's interpreter, which the packages above serve.
read -r python python_count < <(/usr/bin/python3 "$root/bench/peers/sweep_pyvisa.py" "$resource" "$points" "$rounds")

printf '%-8s %14s %16s %14s\n' points "halvex ms" "pyvisa-py ms" "pyvisa/halvex"
printf '%-8s %14s %16s %14s\n' "$ours_count" "$ours" "$python" \
  "$(awk -v a="$python" -v b="$ours" 'BEGIN { printf "%.1fx", a / b }')"
[ "$ours_count" = "$points" ] && [ "$python_count" = "$points" ] || {
  echo "scpi-sweep-peers: expected $points values, got $ours_count and $python_count" >&2; exit 1; }
