// When shared-memory segments are made, and with which rights.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { setImmediate } from 'node:timers/promises';
import { test } from 'node:test';
import vm from 'node:vm';

import { repository } from '../../support/build.mjs';
import { mockClocks, requireFace } from '../../support/face.mjs';

const { makeSegment } = requireFace('./private_segments.js');

// A second of its own for every test, so that they do not wait for each other.
let second = 1_000_000_000;

function stopTheClock(t, milliseconds = 500) {
  second += 100;
  mockClocks(t, { apis: ['Date', 'setTimeout'], now: second * 1000 + milliseconds });
}

test('the first segment for a purpose is made before anything else happens', (t) => {
  stopTheClock(t);
  let isMade = false;
  makeSegment('first', () => (isMade = true));
  assert.ok(isMade);
});

test('a segment is made under a umask of 077', async (t) => {
  stopTheClock(t);
  const usual = process.umask(0o027);
  assert.equal(await makeSegment('mask', () => process.umask()), 0o077);
  assert.equal(process.umask(usual), 0o027);
});

test('the second segment for the same purpose waits for the next second', async (t) => {
  stopTheClock(t, 400);
  const made = [];
  const make = () => made.push(Date.now() % 100_000);
  await makeSegment('same', make);
  const again = Promise.all([makeSegment('same', make), makeSegment('same', make)]);
  await makeSegment('other', make);
  t.mock.timers.tick(619);
  await setImmediate();
  assert.deepEqual(made, [400, 400]);
  t.mock.timers.tick(1);
  await setImmediate();
  assert.deepEqual(made, [400, 400, 1020]);
  t.mock.timers.tick(1000);
  await again;
  assert.deepEqual(made, [400, 400, 1020, 2020]);
});

// A copy of one of the face's modules, and of those that it requires, with globals of its own: as test
// runners load them for each test file. Node's own modules are the process's.
function copyOf(file, context = vm.createContext({ process: { umask: () => 0 } }), loaded = {}) {
  if (loaded[file]) return loaded[file].exports;
  const module = (loaded[file] = { exports: {} });
  const run = vm.compileFunction(readFileSync(file, 'utf8'), ['exports', 'require', 'module'], {
    parsingContext: context,
  });
  const requireFrom = (name) =>
    name.startsWith('.')
      ? copyOf(path.join(path.dirname(file), name), context, loaded)
      : requireFace(name);
  run(module.exports, requireFrom, module);
  return module.exports;
}

test('copies of the module with globals of their own wait for each other', async (t) => {
  stopTheClock(t, 400);
  const [first, second] = [1, 2].map(() => {
    const loaded = {};
    const file = (name) => path.join(repository, 'js', name);
    const copy = copyOf(file('private_segments.js'), undefined, loaded);
    const clocks = loaded[file('clocks.js')].exports;
    t.mock.method(clocks, 'wallTime', () => Date.now());
    t.mock.method(clocks, 'setTimeout', (...args) => setTimeout(...args));
    return copy;
  });
  const made = [];
  const make = () => made.push(Date.now() % 100_000);
  await first.makeSegment('shared', make);
  const again = second.makeSegment('shared', make);
  const other = makeSegment('shared', make);
  t.mock.timers.tick(619);
  await setImmediate();
  assert.deepEqual(made, [400]);
  t.mock.timers.tick(1);
  await again;
  t.mock.timers.tick(1000);
  await other;
  assert.deepEqual(made, [400, 1020, 2020]);
});

test('a clock that was set back makes no segment wait', async (t) => {
  stopTheClock(t);
  const made = [];
  const make = () => made.push(Date.now());
  await makeSegment('back', make);
  const now = Date.now() - 3_600_000;
  t.mock.timers.setTime(now);
  makeSegment('back', make);
  assert.deepEqual(made, [now + 3_600_000, now]);
});

test('a second that has been before is waited for when the clock is set back into it', async (t) => {
  stopTheClock(t, 400);
  const start = Date.now();
  const made = [];
  const make = () => made.push(Date.now() - start);
  await makeSegment('again', make);
  t.mock.timers.setTime(start + 1000);
  await makeSegment('again', make);
  t.mock.timers.setTime(start);
  const again = makeSegment('again', make);
  const untouched = makeSegment('untouched', make);
  t.mock.timers.tick(620);
  await setImmediate();
  assert.deepEqual(made, [0, 1000, 0]);
  t.mock.timers.tick(1000);
  await Promise.all([again, untouched]);
  assert.deepEqual(made, [0, 1000, 0, 1620]);
});

test('what took some seconds to be made may have its name from each of them', async (t) => {
  stopTheClock(t, 0);
  const start = Date.now();
  const made = [];
  const make = () => made.push(Date.now() - start);
  await makeSegment('slow', () => t.mock.timers.setTime(start + 2400));
  // The system counts the second before the first one for a moment.
  for (const second of [-1, 0, 1, 2]) {
    t.mock.timers.setTime(start + second * 1000 + 500);
    makeSegment('slow', make);
    await setImmediate();
    assert.deepEqual(made, []);
  }
  t.mock.timers.setTime(start - 1500);
  await makeSegment('slow', make);
  assert.deepEqual(made, [-1500]);
});

test('a clock that is set back while a segment is made leaves no time to be waited for', async (t) => {
  stopTheClock(t);
  const start = Date.now();
  await makeSegment('during', () => t.mock.timers.setTime(start - 10_000));
  const made = [];
  for (const second of [-10, -5, 0]) {
    t.mock.timers.setTime(start + second * 1000);
    makeSegment('during', () => made.push(second));
    await setImmediate();
  }
  assert.deepEqual(made, [-5]);
});

test('a signal that was aborted before keeps it from being made', async (t) => {
  stopTheClock(t);
  const signals = [undefined, AbortSignal.abort(new Error('enough'))];
  await assert.rejects(
    makeSegment('aborted', () => assert.fail('made'), signals),
    { message: 'enough' },
  );
});

test('a segment that could not be made counts as made, and the umask is restored', async (t) => {
  stopTheClock(t, 0);
  const usual = process.umask();
  const fail = () => {
    throw new Error('full');
  };
  await assert.rejects(makeSegment('failed', fail), { message: 'full' });
  assert.equal(process.umask(), usual);
  let isMade = false;
  const again = makeSegment('failed', () => (isMade = true));
  await setImmediate();
  assert.ok(!isMade);
  t.mock.timers.tick(1020);
  await again;
});
