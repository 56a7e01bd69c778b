'use strict';

// Which engine this process uses. There is one in a process: the first choice holds, for all copies of
// the package.

const { processRecord } = require('./process_record.js');

// The environment variable that names the engine for imports of the package itself.
const VARIABLE = 'TESSEL_WRAPPER_ENGINE';
// The directory of the addon with each engine, within the directory of a build.
const DIRECTORIES = new Map([
  ['embedded', '.'],
  ['webrtc', 'webrtc'],
]);
const IMPORTS = new Map([
  ['embedded', 'tessel-wrapper'],
  ['webrtc', 'tessel-wrapper/webrtc'],
]);

const choice = processRecord('engine.1', () => ({ name: undefined }));

// Throws an Error when the process has another engine already.
function chooseEngine(name) {
  choice.name ??= name;
  if (choice.name !== name) {
    throw new Error(
      `This process uses the ${choice.name} engine already, and can use no other: "${IMPORTS.get(name)}" cannot be imported beside "${IMPORTS.get(choice.name)}".`,
    );
  }
}

function usualEngine() {
  const name = process.env[VARIABLE] || 'embedded';
  if (DIRECTORIES.has(name)) return name;
  const names = [...DIRECTORIES.keys()].join(' or ');
  throw new Error(`${VARIABLE} names the engine "${name}": it has to be ${names}.`);
}

const chooseUsualEngine = () => chooseEngine(usualEngine());

// The engine of this process, and where the addon with it lies in a build.
const engineName = () => choice.name ?? usualEngine();
const engineDirectory = () => DIRECTORIES.get(engineName());

module.exports = { VARIABLE, chooseEngine, chooseUsualEngine, engineDirectory, engineName };
