// Entering and leaving widget mode in the main process.

import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { test } from 'node:test';

import { construct, engine } from '../../support/scripted/wrapper_kit.mjs';
import { runInChild } from '../../support/child.mjs';
import { countOf, entryOf } from '../../support/shared_memory/handmade_segments.mjs';
import { fileOfSegment } from '../../support/shared_memory/shared_memory_names.mjs';
import { remote } from '../../support/streams.mjs';

engine.loadAddon();

const REMOTE = remote(0);

// The lines that `script` printed between its marks, addresses and random names replaced.
function linesOf(script) {
  const child = runInChild(script, { modules: ['./support/scripted/wrapper_kit.mjs'] });
  assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
  const lines = child.lines.map((line) =>
    line.replace(/0x[0-9a-f]+/g, '<address>').replace(/\/(SHM|SEM)[0-9A-Za-z]+/g, '<$1>'),
  );
  return lines.slice(lines.indexOf('--- begin') + 1, lines.indexOf('--- end'));
}

test('both methods require an argument, parse the stream key and return nothing', (t) => {
  engine.reset();
  const wrapper = construct();
  t.after(() => wrapper.destroy());
  for (const method of ['enterWidgetMode', 'exitWidgetMode']) {
    assert.throws(() => wrapper[method](), {
      name: 'TypeError',
      message: 'Wrong number of arguments, expected 1',
    });
    assert.throws(() => wrapper[method](5), {
      name: 'TypeError',
      message: 'Wrong argument type for argument 0, expected Object',
    });
    assert.throws(() => wrapper[method]({ type: 'nothing', streamIndex: 0 }), {
      message: 'Invalid value for type StreamIndex, expected local|remote|content',
    });
    assert.equal(wrapper[method](REMOTE), undefined);
  }
});

test('getSharedDataInfo names the main segment, shm_name first', (t) => {
  engine.reset();
  const wrapper = construct();
  t.after(() => wrapper.destroy());
  const info = wrapper.getSharedDataInfo(1, 2, 3);
  assert.deepEqual(Object.keys(info), ['shm_name', 'sem_name']);
  assert.match(info.shm_name, /^\/SHM[0-9A-Za-z]{25}$/);
  assert.match(info.sem_name, /^\/SEM[0-9A-Za-z]{20}$/);
  assert.ok(existsSync(`/dev/shm${info.shm_name}`));
  assert.ok(existsSync(`/dev/shm/sem.${info.sem_name.slice(1)}`));
});

test('a stream is listed when its receiver is registered, and until it is unregistered', (t) => {
  engine.reset();
  const wrapper = construct();
  t.after(() => wrapper.destroy());
  engine.setStream(REMOTE);
  const main = fileOfSegment(wrapper.getSharedDataInfo().shm_name);
  const listed = () => entryOf(main, REMOTE.streamIndex);
  const seen = engine.watchCalls((operation) => {
    if (operation !== 'SetFrameReceiver') return undefined;
    const { valid, shm_name: shm, sem_name: sem } = listed();
    return { valid, segment: existsSync(fileOfSegment(shm)), lock: countOf(sem) };
  });
  wrapper.enterWidgetMode(REMOTE);
  assert.equal(listed().valid, 1);
  wrapper.exitWidgetMode(REMOTE);
  assert.equal(listed().valid, 0);
  const free = { valid: 1, segment: true, lock: 1 };
  assert.deepEqual(seen, [free, free]);
});

test('frames are received only while there is a segment, however often a stream enters and leaves', () => {
  const lines = linesOf(({ engine: scripted, construct: make }) => {
    const stream = { type: 'remote', streamIndex: 0 };
    const wrapper = make();
    scripted.setStream(stream);
    scripted.startPushing(stream, { width: 320, height: 180, fps: 0 });
    console.log('--- begin');
    for (let round = 0; round < 20; ++round) {
      wrapper.enterWidgetMode(stream);
      scripted.pushFrame(stream, { width: 320, height: 180 });
      wrapper.exitWidgetMode(stream);
    }
    console.log(scripted.stopPushing(stream) >= 0);
    console.log('--- end');
    wrapper.destroy();
  });
  assert.equal(lines.at(-1), 'true');
  assert.equal(lines.filter((line) => line.startsWith('Exit Widget Mode')).length, 20);
  assert.deepEqual(
    lines.filter((line) => /NotifyFrameArrived|storeVideoFrame|timedout/.test(line)),
    [],
  );
});

test('entering twice, and leaving without entering, print these lines', () => {
  const lines = linesOf(({ engine: scripted, construct: make }) => {
    const stream = { type: 'content', streamIndex: 0 };
    const wrapper = make();
    scripted.setStream(stream);
    wrapper.enterWidgetMode(stream);
    scripted.takeCalls();
    console.log('--- begin');
    wrapper.enterWidgetMode(stream);
    console.log(scripted.takeCalls().length, 'calls');
    wrapper.exitWidgetMode({ type: 'local', streamIndex: 7 });
    wrapper.enterWidgetMode({ type: 'remote', streamIndex: 50 });
    console.log('--- end');
    wrapper.destroy();
  });
  assert.deepEqual(lines, [
    'Enter Widget Mode for : 2, 0',
    'enableSharedMemory: Already allocated, something is wrong!',
    '0 calls',
    'Exit Widget Mode for : 0, 7',
    'unregisterFrameReciever: Frame handler pointer not found for stream key:0, index:7',
    'disableSharedMemory: Not allocated, something is wrong!',
    'Enter Widget Mode for : 1, 50',
    'enableSharedMemory: Unknown stream index!',
  ]);
});

test("after a wrapper's line the numbers in these lines are hexadecimal", () => {
  const lines = linesOf(({ engine: scripted, construct: make }) => {
    const wrapper = make();
    scripted.setStream({ type: 'remote', streamIndex: 10 });
    console.log('--- begin');
    wrapper.enterWidgetMode({ type: 'remote', streamIndex: 30 });
    wrapper.exitWidgetMode({ type: 'remote', streamIndex: 31 });
    console.log('--- end');
    wrapper.destroy();
  });
  assert.equal(lines[0], 'Enter Widget Mode for : 1, 1e');
  // The segment's lines have restored the decimal base by then.
  assert.ok(lines.includes('Exit Widget Mode for : 1, 31'));
});

test('a stream without a frame manager has a segment and no receiver', () => {
  const lines = linesOf(({ construct: make }) => {
    const wrapper = make();
    console.log('--- begin');
    wrapper.enterWidgetMode({ type: 'remote', streamIndex: 2 });
    console.log('--- end');
    wrapper.destroy();
  });
  assert.equal(
    lines.at(-1),
    'registerFrameReciever: Frame handler pointer not found for stream key:1, index:2',
  );
});

for (const [how, script] of [
  ['a natural end', () => {}],
  ['process.exit()', () => process.exit(0)],
  [
    'an uncaught error',
    () => {
      process.on('uncaughtException', () => process.exit(0));
      throw new Error('uncaught');
    },
  ],
]) {
  test(`after ${how} no names of a stream in widget mode are left`, () => {
    const child = runInChild(
      `({ engine: scripted, construct: make }) => {
        const stream = { type: 'remote', streamIndex: 1 };
        const wrapper = make();
        scripted.setStream(stream);
        wrapper.enterWidgetMode(stream);
        wrapper.destroy();
        (${script})();
      }`,
      { modules: ['./support/scripted/wrapper_kit.mjs'] },
    );
    assert.deepEqual([child.code, child.signal], [0, null]);
    const names = child.lines.flatMap((line) => line.match(/\/(SHM|SEM)[0-9A-Za-z]+/g) ?? []);
    assert.equal(new Set(names).size, 4);
    for (const name of names) {
      assert.ok(!existsSync(`/dev/shm${name}`), name);
      assert.ok(!existsSync(`/dev/shm/sem.${name.slice(1)}`), name);
    }
  });
}
