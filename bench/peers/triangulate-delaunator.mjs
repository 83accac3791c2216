// Times the npm package "delaunator" on a file of float32 x, y pairs; prints
// the best time in milliseconds and the triangle count.
import { readFileSync } from 'node:fs';
import { performance } from 'node:perf_hooks';
import { createRequire } from 'node:module';

const [file, repeatsText, modules] = process.argv.slice(2);
const require = createRequire(modules + '/');
const Delaunator = require('delaunator').default ?? require('delaunator');
const bytes = readFileSync(file);
const floats = new Float32Array(bytes.buffer, bytes.byteOffset, bytes.length / 4);
const coords = Float64Array.from(floats);
let best = Infinity;
let triangles = 0;
for (let r = 0; r < Number(repeatsText); ++r) {
    const start = performance.now();
    const d = new Delaunator(coords);
    const took = performance.now() - start;
    best = Math.min(best, took);
    triangles = d.triangles.length / 3;
}
console.log(`${best.toFixed(3)} ${triangles}`);
