'use strict';

// The package with the engine that the environment names, the embedded one unless it names another.

const { chooseUsualEngine } = require('./engine_choice.js');

chooseUsualEngine();

module.exports = require('./face.js');
