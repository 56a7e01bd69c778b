// loadAddon(name): one of the benchmarks' addons; loadProduct(): the product. Of the release build.

import { createRequire } from 'node:module';

const require = createRequire(import.meta.url);

export const loadAddon = (name) => require(`../build/release/bench/${name}.node`);
export const loadProduct = () => require('../build/release/tesselWrapper.node');
