'use strict';

// Finds the addon and loads it.

const fs = require('node:fs');
const path = require('node:path');

const { engineDirectory, engineName } = require('./engine_choice.js');

// The environment variable that names another build of the addon.
const OVERRIDE = 'TESSEL_WRAPPER_ADDON';
// The package's folder. A bundler puts this file elsewhere, or into an ES module, which has none.
const HOME = typeof __dirname === 'string' ? path.join(__dirname, '..') : '/';
const BUILD = path.join(HOME, 'build', 'release');

// Advice for a failure to load, by the system's error message.
const REMEDIES = [
  [
    /libtesselclient\.so: cannot open shared object file/,
    'The engine is missing: libtesselclient.so has to lie beside the addon, or in a directory of LD_LIBRARY_PATH.',
  ],
  [
    /libtesselclient\.so: .*(file too short|invalid ELF header)|symbol lookup error|undefined symbol/,
    'The engine that was found does not fit: look at LD_LIBRARY_PATH, which comes before the directory of the addon.',
  ],
  [
    /GLIBC|wrong ELF class|invalid ELF header|file too short/,
    'The addon was built for another system, or not to its end.',
  ],
];

// The absolute path of the addon to load: the one named by the environment, else the release build
// with the selected engine.
function addonPath() {
  const named = process.env[OVERRIDE];
  return named ? path.resolve(named) : path.join(BUILD, engineDirectory(), 'tesselWrapper.node');
}

// The directory of the build to which that addon belongs: it has one for each other engine in it.
function buildDirectory() {
  const directory = path.dirname(addonPath());
  return path.basename(directory) === 'webrtc' ? path.dirname(directory) : directory;
}

// Why `file` cannot be an addon, checked before it is loaded.
function fault(file) {
  const found = fs.statSync(file, { throwIfNoEntry: false });
  if (!found) return 'There is no such file.';
  if (found.isDirectory()) return 'It is a directory: name the file tesselWrapper.node in it.';
  return path.extname(file) === '.node' ? undefined : 'It is not a .node file.';
}

function explanation(message) {
  return REMEDIES.find(([pattern]) => pattern.test(message))?.[1];
}

// Advice for the application's developer about an addon that cannot be loaded.
function action() {
  if (process.env[OVERRIDE]) {
    return `${OVERRIDE} names this file: correct it, or unset it to use the package's own build.`;
  }
  if (!fs.existsSync(path.join(HOME, 'bin', 'tessel-wrapper.js'))) {
    return `tessel-wrapper was bundled, and its addon was not: keep tessel-wrapper external ("Bundle your application" in its docs/guide.md), or name the addon in ${OVERRIDE}.`;
  }
  return engineName() === 'webrtc'
    ? `Build it with "npm run build:webrtc" in a clone of the repository, and name the clone's build/release/webrtc/tesselWrapper.node in ${OVERRIDE} elsewhere.`
    : `Build it with "npx tessel-wrapper build", or name another build in ${OVERRIDE}. "npx tessel-wrapper doctor" looks at the rest.`;
}

// Advice for a refusal by Node.js itself, which another build would not change.
function permission({ code }) {
  if (code === 'ERR_ACCESS_DENIED') {
    return 'The permission model of Node.js keeps it from being read: start node with --allow-fs-read for it and for /dev/shm, and with --allow-addons.';
  }
  if (code !== 'ERR_DLOPEN_DISABLED') return undefined;
  return process.permission
    ? 'The permission model of Node.js keeps addons out: start node with --allow-addons.'
    : 'Node.js was started with --no-addons: start it without.';
}

// The result of `step`, or an Error with the system's message and advice.
function explained(file, step) {
  try {
    return step();
  } catch (error) {
    const { message } = error;
    const advice = permission(error) ?? [explanation(message), action()].filter(Boolean).join('\n');
    throw new Error(`Cannot load ${file}: ${message}\n${advice}`, { cause: error });
  }
}

// Like require(), but in a form that bundlers do not change.
function load(file) {
  const addon = { exports: {} };
  process.dlopen(addon, file);
  return addon.exports;
}

const loaded = new Map(); // exports, by file

// The addon's exports. Throws an Error that says what to do.
function loadAddon() {
  const file = addonPath();
  if (!loaded.has(file)) {
    const wrong = explained(file, () => fault(file));
    if (wrong) throw new Error(`Cannot load ${file}\n${wrong}\n${action()}`);
    loaded.set(
      file,
      explained(file, () => load(file)),
    );
  }
  return loaded.get(file);
}

module.exports = { OVERRIDE, addonPath, buildDirectory, loadAddon };
