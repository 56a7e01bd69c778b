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
// What comes with the package.
const PREBUILT = path.join(HOME, 'prebuilt', 'linux-x64');

const MEDIA_PACKAGES =
  'apt-get install gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-nice gstreamer1.0-pulseaudio gstreamer1.0-pipewire libsoup-3.0-0 libxcb-composite0 libxcb-randr0';

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
    /lib(gst|soup|xcb|gio|gobject|glib)[^ ]*: cannot open shared object file/,
    `The engine for real meetings needs GStreamer, libsoup and XCB: ${MEDIA_PACKAGES}`,
  ],
  [
    /GLIBC|wrong ELF class|invalid ELF header|file too short/,
    'The addon was built for another system, or not to its end.',
  ],
];

// The absolute path of the addon to load: the one named by the environment, else the release build
// with this engine, which somebody has made here, else the one that comes with the package.
function addonPath(engine = engineDirectory()) {
  const named = process.env[OVERRIDE];
  if (named) return path.resolve(named);
  const [built, prebuilt] = [BUILD, PREBUILT].map((directory) =>
    path.join(directory, engine, 'tesselWrapper.node'),
  );
  return !fs.existsSync(built) && fs.existsSync(prebuilt) ? prebuilt : built;
}

// The directory whose folder webrtc has the engine for real meetings, if it is there.
function buildDirectory() {
  const directory = path.dirname(addonPath('webrtc'));
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

// Whether this process has the libraries of the engine for real meetings; true when it may not look.
function hasMedia() {
  try {
    return fs.readFileSync('/proc/self/maps', 'latin1').includes('/libgstwebrtc-1.0.so');
  } catch {
    return true;
  }
}

const loaded = new Map(); // exports, by file

// The addon's exports. Throws an Error that says what to do.
function loadAddon() {
  const file = addonPath();
  if (!loaded.has(file)) {
    const wrong = explained(file, () => fault(file));
    if (wrong) throw new Error(`Cannot load ${file}\n${wrong}\n${action()}`);
    const addon = explained(file, () => load(file));
    if (engineName() === 'webrtc' && !hasMedia()) {
      throw new Error(
        `Cannot use ${file}\nIts engine is not the one for real meetings.\n${action()}`,
      );
    }
    loaded.set(file, addon);
  }
  return loaded.get(file);
}

module.exports = { MEDIA_PACKAGES, OVERRIDE, addonPath, buildDirectory, loadAddon };
