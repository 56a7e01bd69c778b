'use strict';

// The engine that this process uses. A process has one engine: the first choice is final.

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

let chosen;

// Throws an Error when the process has another engine already.
function chooseEngine(name) {
  chosen ??= name;
  if (chosen !== name) {
    throw new Error(
      `This process uses the ${chosen} engine already, and can use no other: "${IMPORTS.get(name)}" cannot be imported beside "${IMPORTS.get(chosen)}".`,
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

// The engine of this process, and the directory of the addon with it in a build.
const engineName = () => chosen ?? usualEngine();
const engineDirectory = () => DIRECTORIES.get(engineName());

module.exports = { VARIABLE, chooseEngine, chooseUsualEngine, engineDirectory, engineName };
