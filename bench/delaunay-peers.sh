#!/usr/bin/env bash
# Triangulates the same uniform random points (100,000 and 1,000,000) with
# DelaunayTriangulation2D, with the npm package "delaunator" under Node and
# with CGAL's Delaunay_triangulation_2, and prints the best times and ratios.
# Installs what it needs: CGAL from Debian (apt), delaunator from the npm
# registry into a temporary folder. Run from anywhere; uses build-rel.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${HVX_BENCH_BUILD:-$root/build-rel}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  sudo=(sudo)
fi
if ! dpkg-query -W -f='${Status}' libcgal-dev 2>/dev/null | grep -q 'install ok installed'; then
  echo "delaunay-peers: installing libcgal-dev" >&2
  export DEBIAN_FRONTEND=noninteractive
  "${sudo[@]}" apt-get update -qq
  "${sudo[@]}" apt-get install -y -qq --no-install-recommends libcgal-dev >/dev/null
fi
(cd "$work" && npm init -y >/dev/null && npm install --silent --no-audit --no-fund delaunator >/dev/null)
delaunator_version=$(node -p "require('$work/node_modules/delaunator/package.json').version")

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DHVX_BUILD_TESTS=OFF >/dev/null
ninja -C "$build" -j2 HalvexAPI >/dev/null

g++ -O2 -std=c++20 -I"$root/include" "$root/bench/peers/TriangulateOurs.cpp" \
    -L"$build/src" -lHalvexAPI -Wl,-rpath,"$build/src" -o "$work/ours"
g++ -O2 -DNDEBUG -std=c++17 "$root/bench/peers/TriangulateCgal.cpp" -lgmp -lmpfr -o "$work/cgal"

# The same points for all three: float32 pairs, uniform in [0, 1000), from a
# fixed-seed generator (mulberry32).
node - "$work" <<'JS'
const { writeFileSync } = require('node:fs');
let state = 20241121;
const random = () => {
  state = (state + 0x6d2b79f5) | 0;
  let t = Math.imul(state ^ (state >>> 15), 1 | state);
  t = (t + Math.imul(t ^ (t >>> 7), 61 | t)) ^ t;
  return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
};
for (const n of [100000, 1000000]) {
  const values = new Float32Array(2 * n);
  for (let i = 0; i < values.length; ++i) values[i] = random() * 1000;
  writeFileSync(`${process.argv[2]}/points-${n}.bin`, Buffer.from(values.buffer));
}
JS

# The machine may be shared: the three run in turns, several rounds, and
# each keeps its best time, so a busy stretch does not hit one of them only.
rounds=5
best() { awk -v a="$1" -v b="$2" 'BEGIN { print (a == "" || b + 0 < a + 0) ? b : a }'; }

printf '%-9s %12s %16s %10s %18s %12s\n' points "halvex ms" "delaunator ms" "cgal ms" "delaunator/halvex" "cgal/halvex"
for n in 100000 1000000; do
  repeats=$([ "$n" -eq 100000 ] && echo 4 || echo 2)
  ours="" js="" cgal=""
  for round in $(seq "$rounds"); do
    read -r t ours_tri < <("$work/ours" "$work/points-$n.bin" "$repeats")
    ours=$(best "$ours" "$t")
    read -r t js_tri < <(node "$root/bench/peers/triangulate-delaunator.mjs" "$work/points-$n.bin" "$repeats" "$work/node_modules")
    js=$(best "$js" "$t")
    read -r t cgal_tri < <("$work/cgal" "$work/points-$n.bin" "$repeats")
    cgal=$(best "$cgal" "$t")
  done
  awk -v n="$n" -v o="$ours" -v j="$js" -v c="$cgal" \
    'BEGIN { printf "%-9s %12s %16s %10s %18.2f %12.2f\n", n, o, j, c, j / o, c / o }'
  if [ "$ours_tri" != "$js_tri" ] || [ "$ours_tri" != "$cgal_tri" ]; then
    echo "  triangles: halvex $ours_tri, delaunator $js_tri, cgal $cgal_tri" >&2
  fi
done
echo "(best of $rounds rounds of 4 runs for 100,000 points and of 2 for 1,000,000, taken in turns;" \
  "delaunator $delaunator_version under node $(node --version))"
