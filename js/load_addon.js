'use strict';

// Finds the addon and loads it.

const fs = require('node:fs');
const path = require('node:path');

// The environment variable that names another build of the addon.
const OVERRIDE = 'TESSEL_WRAPPER_ADDON';
const BUILT_HERE = path.join(__dirname, '..', 'build', 'release', 'tesselWrapper.node');

// What to do about a failure to load, by what the system says about it.
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

// The absolute path of the addon to load: what the environment names, else the release build.
function addonPath() {
  const named = process.env[OVERRIDE];
  return named ? path.resolve(named) : BUILT_HERE;
}

// What is wrong with `file` itself, before it is loaded.
function fault(file) {
  const found = fs.statSync(file, { throwIfNoEntry: false });
  if (!found) return 'There is no such file.';
  if (found.isDirectory()) return 'It is a directory: name the file tesselWrapper.node in it.';
  return path.extname(file) === '.node' ? undefined : 'It is not a .node file.';
}

function explanation(message) {
  return REMEDIES.find(([pattern]) => pattern.test(message))?.[1];
}

// What the application's developer can do about an addon that cannot be loaded.
function action() {
  return process.env[OVERRIDE]
    ? `${OVERRIDE} names this file: correct it, or unset it to use the package's own build.`
    : `Build it with "npx tessel-wrapper build", or name another build in ${OVERRIDE}. "npx tessel-wrapper doctor" looks at the rest.`;
}

// The addon's exports. Throws an Error with the system's own words, and what to do about them.
function loadAddon() {
  const file = addonPath();
  const wrong = fault(file);
  if (wrong) throw new Error(`Cannot load ${file}\n${wrong}\n${action()}`);
  try {
    return require(file);
  } catch (error) {
    // What Node adds to this message is the list of the requiring files.
    const [message] = error.message.split('\n');
    const lines = [`Cannot load ${file}: ${message}`, explanation(message), action()];
    throw new Error(lines.filter(Boolean).join('\n'), { cause: error });
  }
}

module.exports = { OVERRIDE, addonPath, loadAddon };
