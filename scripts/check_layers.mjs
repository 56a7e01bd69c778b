// node scripts/check_layers.mjs [ROOT]
//
// Fails when a native source file of the repository at ROOT (by default this one) includes a header
// of a layer above its own. A folder may include its own headers and those of the folders that the
// table names for it. Tests and benchmarks may include everything.

import { existsSync, readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const NAPI = ['addon/napi', 'base', 'engine/include'];

// By the longest entry that a file's path begins with. A folder that is not listed is refused.
const MAY_INCLUDE = {
  base: [],
  'engine/include': [],
  'engine/support': ['base', 'engine/include'],
  'engine/embedded': ['base', 'engine/include', 'engine/support'],
  'engine/webrtc': ['base', 'engine/include', 'engine/support'],
  'addon/napi': ['base', 'engine/include'],
  'addon/utils': NAPI,
  'addon/sharedmem': ['base', 'engine/include', 'addon/utils'],
  'addon/events': NAPI,
  'addon/frames': NAPI,
  'addon/proxy': [...NAPI, 'addon/utils', 'addon/frames', 'addon/sharedmem'],
  'addon/wrapper': [...NAPI, 'addon/utils', 'addon/events', 'addon/frames', 'addon/sharedmem'],
  'addon/module.cc': ['addon/proxy', 'addon/wrapper'],
};
const TOP_FOLDERS = ['base', 'engine', 'addon', 'test', 'bench'];

const INCLUDE = /^[ \t]*#[ \t]*include[ \t]*(["<])([^">]+)[">]/gm;

const root = path.resolve(process.argv[2] ?? fileURLToPath(new URL('..', import.meta.url)));

function isBelow(file, folder) {
  return file === folder || file.startsWith(`${folder}/`);
}

function layerOf(file) {
  return Object.keys(MAY_INCLUDE)
    .filter((folder) => isBelow(file, folder))
    .sort((one, other) => other.length - one.length)[0];
}

// The repository's path of an included header, or nothing for one of the system's or a library's.
function headerPath(file, delimiter, name) {
  const places = [name, path.posix.join('engine/include', name)];
  if (delimiter === '"') places.unshift(path.posix.join(path.posix.dirname(file), name));
  return places.find(
    (place) =>
      TOP_FOLDERS.some((folder) => isBelow(place, folder)) && existsSync(path.join(root, place)),
  );
}

function complaintsAbout(file) {
  const layer = layerOf(file);
  if (!layer)
    return [`${file}: its folder is not in the table of ${path.basename(import.meta.url)}`];
  const source = readFileSync(path.join(root, file), 'utf8');
  return [...source.matchAll(INCLUDE)]
    .map(([, delimiter, name]) => headerPath(file, delimiter, name))
    .filter((header) => header && ![layer, ...MAY_INCLUDE[layer]].includes(layerOf(header)))
    .map((header) => `${file}: must not include ${header}`);
}

const files = ['base', 'engine', 'addon']
  .filter((folder) => existsSync(path.join(root, folder)))
  .flatMap((folder) =>
    readdirSync(path.join(root, folder), { recursive: true }).map((name) =>
      path.posix.join(folder, name),
    ),
  )
  .filter((file) => /\.(cc|h)$/.test(file))
  .sort();

const complaints = files.flatMap(complaintsAbout);
if (files.length === 0) complaints.push(`${root}: no native source files`);
for (const complaint of complaints) console.error(complaint);
process.exitCode = complaints.length === 0 ? 0 : 1;
