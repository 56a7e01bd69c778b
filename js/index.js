'use strict';

// The package with the engine that the environment names, by default the embedded one.

const { chooseUsualEngine } = require('./engine_choice.js');

chooseUsualEngine();

module.exports = require('./face.js');
