// The engine that an import gives, and the error when a process requests two.

import assert from 'node:assert/strict';
import path from 'node:path';
import { test } from 'node:test';

import { repository } from '../../support/build.mjs';
import { runInChild } from '../../support/child.mjs';

const RELEASE = path.join(repository, 'build', 'release');

// What requiring these modules of the package one after the other says, without loading an addon:
// the path at which it would be looked for, or the error. Behind 'copy' they are others of the same
// name, as after a test runner has reset its modules.
function chosen(imports, environment = {}) {
  const { said, stderr } = runInChild(
    ({ say }) => {
      const { createRequire } = require('node:module');
      const requireFace = createRequire(process.argv[1]);
      const file = requireFace.resolve('./js/face.js');
      const face = { id: file, filename: file, loaded: true, exports: {} };
      requireFace.cache[file] = face;
      try {
        for (const name of process.argv.slice(2)) {
          if (name !== 'copy') requireFace(name);
          else {
            for (const loaded of Object.keys(requireFace.cache)) delete requireFace.cache[loaded];
            requireFace.cache[file] = face;
          }
        }
        say(requireFace('./js/load_addon.js').addonPath());
      } catch ({ message }) {
        say(message);
      }
    },
    {
      modules: ['./support/child.mjs'],
      args: [path.join(repository, 'x'), ...imports],
      environment: { TESSEL_WRAPPER_ADDON: '', TESSEL_WRAPPER_ENGINE: '', ...environment },
    },
  );
  assert.equal(stderr, '');
  return said.join('\n');
}

const EMBEDDED = path.join(RELEASE, 'tesselWrapper.node');
const WEBRTC = path.join(RELEASE, 'webrtc', 'tesselWrapper.node');

for (const [what, imports, environment, file] of [
  ['the package is the embedded engine', ['./js/index.js'], {}, EMBEDDED],
  [
    'the name selects the embedded engine',
    ['./js/index.js'],
    { TESSEL_WRAPPER_ENGINE: 'embedded' },
    EMBEDDED,
  ],
  [
    'the environment may name another',
    ['./js/index.js'],
    { TESSEL_WRAPPER_ENGINE: 'webrtc' },
    WEBRTC,
  ],
  ['the import may name an engine', ['./js/webrtc.js'], {}, WEBRTC],
  [
    'both may name the same',
    ['./js/webrtc.js', './js/index.js'],
    { TESSEL_WRAPPER_ENGINE: 'webrtc' },
    WEBRTC,
  ],
]) {
  test(what, () => assert.equal(chosen(imports, environment), file));
}

test('a process uses one engine only', () => {
  assert.equal(
    chosen(['./js/index.js', './js/webrtc.js']),
    'This process uses the embedded engine already, and can use no other: "tessel-wrapper/webrtc" cannot be imported beside "tessel-wrapper".',
  );
  assert.equal(
    chosen(['./js/webrtc.js', './js/index.js']),
    'This process uses the webrtc engine already, and can use no other: "tessel-wrapper" cannot be imported beside "tessel-wrapper/webrtc".',
  );
});

test('a process has one engine also when it has several copies of the package', () => {
  assert.equal(
    chosen(['./js/index.js', 'copy', './js/webrtc.js']),
    'This process uses the embedded engine already, and can use no other: "tessel-wrapper/webrtc" cannot be imported beside "tessel-wrapper".',
  );
  assert.equal(chosen(['./js/webrtc.js', 'copy']), WEBRTC);
});

test('an engine that there is not is refused by its name', () => {
  assert.equal(
    chosen(['./js/index.js'], { TESSEL_WRAPPER_ENGINE: 'steam' }),
    'TESSEL_WRAPPER_ENGINE names the engine "steam": it has to be embedded or webrtc.',
  );
});
