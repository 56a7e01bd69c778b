// The engine that an import gives, and the error when a process requests two.

import assert from 'node:assert/strict';
import path from 'node:path';
import { test } from 'node:test';

import { repository } from '../../support/build.mjs';
import { runInChild } from '../../support/child.mjs';

const RELEASE = path.join(repository, 'build', 'release');

// What requiring these modules of the package one after the other says, without loading an addon:
// the path at which it would be looked for, or the error.
function chosen(imports, environment = {}) {
  const { said, stderr } = runInChild(
    ({ say }) => {
      const { createRequire } = require('node:module');
      const requireFace = createRequire(process.argv[1]);
      const face = requireFace.resolve('./js/face.js');
      requireFace.cache[face] = { id: face, filename: face, loaded: true, exports: {} };
      try {
        for (const name of process.argv.slice(2)) requireFace(name);
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

test('an unknown engine is rejected, with its name in the message', () => {
  assert.equal(
    chosen(['./js/index.js'], { TESSEL_WRAPPER_ENGINE: 'steam' }),
    'TESSEL_WRAPPER_ENGINE names the engine "steam": it has to be embedded or webrtc.',
  );
});
