'use strict';

// Finds the addon and loads it.

const path = require('node:path');

// The environment variable that names another build of the addon.
const OVERRIDE = 'TESSEL_WRAPPER_ADDON';
const BUILT_HERE = path.join(__dirname, '..', 'build', 'release', 'tesselWrapper.node');

// What to do about a failure to load, by what the system says about it.
const REMEDIES = [
  [
    /Cannot find module|tesselWrapper\.node: cannot open shared object file/,
    'There is no such file.',
  ],
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

// What helps when the addon at `file` cannot be loaded for the reason that `message` tells.
function remedy(file, message) {
  const explanation = REMEDIES.find(([pattern]) => pattern.test(message))?.[1];
  const action = process.env[OVERRIDE]
    ? `${OVERRIDE} names this file: correct it, or unset it to use the package's own build.`
    : `Build it with "npx tessel-wrapper build", or name another build in ${OVERRIDE}. "npx tessel-wrapper doctor" looks at the rest.`;
  return explanation ? `${explanation}\n${action}` : action;
}

// The addon's exports. Throws an Error with the system's own words, and what to do about them.
function loadAddon() {
  const file = addonPath();
  try {
    return require(file);
  } catch (error) {
    // What Node adds to this message is the list of the requiring files.
    const [message] = error.message.split('\n');
    throw new Error(`Cannot load ${file}: ${message}\n${remedy(file, message)}`, { cause: error });
  }
}

module.exports = { OVERRIDE, addonPath, loadAddon };
