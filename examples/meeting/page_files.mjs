// The files of the pages, by the names that they request.

import { readdirSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = (relative) => fileURLToPath(new URL(relative, import.meta.url));
const require = createRequire(import.meta.url);
const charts = path.dirname(require.resolve('uplot'));
const renderer = path.dirname(require.resolve('tessel-wrapper/renderer'));

function filesIn(directory, prefix) {
  return readdirSync(directory)
    .filter((name) => /\.(mjs|css)$/.test(name) && !name.endsWith('.d.mts'))
    .map((name) => [prefix + name, path.join(directory, name)]);
}

// The files of a page whose document is page/`document`.
export function pageFiles(document) {
  return Object.fromEntries([
    ['', here(`page/${document}`)],
    ...filesIn(here('page'), 'page/'),
    ...filesIn(renderer, 'renderer/'),
    ...['frame_message.mjs', 'stream_names.mjs'].map((name) => [name, here(name)]),
    ['charts/uPlot.mjs', path.join(charts, 'uPlot.esm.js')],
    ['charts/uPlot.css', path.join(charts, 'uPlot.min.css')],
  ]);
}
