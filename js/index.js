'use strict';

// The package's face: finds the addon and exports its two classes untouched.

const path = require('node:path');

// The environment variable that names another build of the addon.
const OVERRIDE = 'TESSEL_WRAPPER_ADDON';

function loadAddon() {
  const file =
    process.env[OVERRIDE] ?? path.join(__dirname, '..', 'build', 'release', 'tesselWrapper.node');
  try {
    return require(file);
  } catch (error) {
    throw new Error(
      `Cannot load ${file}: ${error.message}\n` +
        `Build it with "npm run setup", or name another build in ${OVERRIDE}.`,
      { cause: error },
    );
  }
}

const { TesselWrapper, TesselWrapperProxy } = loadAddon();

module.exports = { TesselWrapper, TesselWrapperProxy };
