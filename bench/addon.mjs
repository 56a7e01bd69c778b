// loadAddon(name): one of the benchmarks' addons, of the release build.

import { createRequire } from 'node:module';

export function loadAddon(name) {
  return createRequire(import.meta.url)(`../build/release/bench/${name}.node`);
}
