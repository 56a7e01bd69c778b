'use strict';

// The addon's two classes, untouched. The module is loaded once for all that need them.

const { loadAddon } = require('./load_addon.js');

const { TesselWrapper, TesselWrapperProxy } = loadAddon();

module.exports = { TesselWrapper, TesselWrapperProxy };
