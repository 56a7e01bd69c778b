// That the addon gives up its references to JavaScript's values in time, and on the thread that owns
// them.

import assert from 'node:assert/strict';
import path from 'node:path';
import { test } from 'node:test';

import { build } from '../../support/build.mjs';
import { runInChild } from '../../support/child.mjs';

const ADDON = path.join(build, 'test/addons/watched/tesselWrapper.node');
const MODULES = ['./support/scripted/wrapper_kit.mjs', './support/make_wrapper.mjs'];

// What was left of references when a process had run `script` to its end.
function referencesAfter(script, ...more) {
  const args = [ADDON, ...more];
  const { code, signal, stderr } = runInChild(script, { modules: MODULES, args });
  assert.deepEqual([code, signal], [0, null], stderr);
  const [, ...numbers] =
    stderr.match(/^references left: (\d+), deleted late: (\d+), deleted elsewhere: (\d+)$/m) ?? [];
  const [left, late, elsewhere] = numbers.map(Number);
  return { left, late, elsewhere };
}

// The classes themselves are held for ever.
const CLASSES = 2;
const nothing = { left: CLASSES, late: 0, elsewhere: 0 };

test('a process that only loads the addon keeps references to the classes only', () => {
  assert.deepEqual(
    referencesAfter(() => void require(process.argv[1])),
    nothing,
  );
});

test('the emitter factory is released with its environment', () => {
  assert.deepEqual(
    referencesAfter(() => {
      require(process.argv[1]).TesselWrapper._internal_setEmitterFactory(() => {});
    }),
    nothing,
  );
});

test('everything that a wrapper holds is released with its environment', () => {
  assert.deepEqual(
    referencesAfter((kit, { makeWrapper }) => {
      const { wrapper } = makeWrapper(require(process.argv[1]).TesselWrapper);
      const stream = { type: 'remote', streamIndex: 3 };
      kit.engine.setFrame(stream, { width: 64, height: 36, frameId: 1 });
      wrapper.getFrame(stream, 0);
      wrapper.destroy();
    }),
    nothing,
  );
});

for (const onEngineThread of [true, false]) {
  const thread = onEngineThread ? 'an engine thread' : 'the JavaScript thread';
  test(`a handler that the engine releases last, on ${thread}, holds no JavaScript values`, () => {
    const references = referencesAfter(async ({ collect, engine }, { makeWrapper }) => {
      const [, addon, where] = process.argv;
      (() => {
        const { wrapper } = makeWrapper(require(addon).TesselWrapper);
        wrapper.on('micLevel', () => {});
        wrapper.destroy();
      })();
      for (let round = 0; round < 2; ++round) await collect();
      if (engine.live().engines !== 0) throw new Error('the wrapper is still there');
      engine.dropCallback({ onEngineThread: where === 'an engine thread' });
    }, thread);
    assert.deepEqual(references, nothing);
  });
}
