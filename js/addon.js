'use strict';

// The addon's two classes, unchanged. The addon is loaded once for all modules that need it.

const { loadAddon } = require('./load_addon.js');

const { TesselWrapper, TesselWrapperProxy } = loadAddon();

module.exports = { TesselWrapper, TesselWrapperProxy };
