'use strict';

// The package with the engine for real meetings.

const { chooseEngine } = require('./engine_choice.js');

chooseEngine('webrtc');

module.exports = require('./face.js');
