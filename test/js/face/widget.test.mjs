// Widgets. Most stand in the process of their meeting: each has its own mapping and its own hold of
// the semaphores, as two processes have.

import assert from 'node:assert/strict';
import { fork } from 'node:child_process';
import { once } from 'node:events';
import { afterEach, beforeEach, test } from 'node:test';

import { readCard } from '../../support/card_code.mjs';
import { face, joinMeeting } from '../../support/face.mjs';
import { remote } from '../../support/streams.mjs';

const { ClosedError, Widget, copyI420, frameCounters } = face;

const STREAM = remote(0);

const afterwards = [];
const testLike = { after: (step) => afterwards.push(step) };

let widget;
let names;

beforeEach(async () => {
  const meeting = await joinMeeting(testLike, 'tessel:demo?participants=1', 1);
  names = await meeting.enterWidgetMode(STREAM);
  widget = new Widget(names);
});

afterEach(() => {
  widget.close();
  for (const step of afterwards.splice(0)) step();
});

// Settles with what `use` made of the first picture.
async function readFirst(use) {
  for (;;) {
    const result = widget.read(STREAM, use);
    if (result !== undefined) return result;
    await new Promise(setImmediate);
  }
}

// The lock is free, and so is the segment's only slot for the next frame.
async function expectReleased() {
  const number = await readFirst((frame) => readCard(frame).number);
  while ((await readFirst((frame) => readCard(frame).number)) === number) {
    await new Promise(setImmediate);
  }
}

test('read passes the picture to the callback and returns its result', async () => {
  const card = await readFirst(readCard);
  assert.deepEqual([card.type, card.streamIndex], ['remote', 0]);
});

test('the frame is released when the callback returns', async () => {
  const frame = await readFirst((given) => {
    assert.equal(given.yPlaneBuffer.length, 640 * 360);
    return given;
  });
  assert.equal(frame.yPlaneBuffer.length, 0);
  assert.throws(() => copyI420(frame), { message: /no longer valid/ });
  await expectReleased();
});

test('the frame is released when the callback throws', async () => {
  const failing = () => {
    throw new Error('mine');
  };
  await assert.rejects(readFirst(failing), { message: 'mine' });
  await expectReleased();
  const { delivered, released } = widget.counters()[0];
  assert.equal(delivered, released);
});

test('an asynchronous callback is refused, and its frame released', async () => {
  await assert.rejects(
    readFirst(async () => {}),
    {
      name: 'TypeError',
      message: 'A frame is gone when the callback returns: it must not be asynchronous',
    },
  );
  await expectReleased();
});

test('reading a stream that is not in widget mode gives no picture', () => {
  const other = { type: 'content', streamIndex: 0 };
  assert.equal(
    widget.read(other, () => assert.fail()),
    undefined,
  );
});

test('watch delivers pictures until its signal is aborted', async () => {
  const controller = new AbortController();
  const numbers = new Set();
  const watching = widget.watch(
    STREAM,
    (frame) => {
      numbers.add(readCard(frame).number);
      if (numbers.size === 3) controller.abort(new Error('enough'));
    },
    { rate: 100, signal: controller.signal },
  );
  await assert.rejects(watching, { message: 'enough' });
  const sorted = [...numbers].sort((a, b) => a - b);
  assert.deepEqual([...numbers], sorted);
});

test('watch rejects with what the callback throws, and the frame is released', async () => {
  const watching = widget.watch(STREAM, () => {
    throw new Error('mine');
  });
  await assert.rejects(watching, { message: 'mine' });
  await expectReleased();
});

test('watch rejects a rate that is not a positive number', async () => {
  await assert.rejects(
    widget.watch(STREAM, () => {}, { rate: 0 }),
    { name: 'RangeError' },
  );
});

test('watch rejects a signal that is not an AbortSignal', async () => {
  await assert.rejects(
    widget.watch(STREAM, () => {}, { signal: 'now' }),
    { name: 'TypeError', message: "Wrong signal 'now', expected an AbortSignal" },
  );
});

test('the counters count delivered and released frames, and frameCounters() lists them', async () => {
  await readFirst(() => true);
  await readFirst(() => true);
  const [row] = widget.counters();
  assert.deepEqual(row, {
    owner: row.owner,
    stream: 'remote-0',
    delivered: 2,
    skipped: 0,
    released: 2,
  });
  assert.match(row.owner, /^widget \d+$/);
  assert.deepEqual(
    frameCounters().filter(({ owner }) => owner === row.owner),
    [row],
  );
  widget.read(STREAM, () => {
    assert.deepEqual([widget.counters()[0].delivered, widget.counters()[0].released], [3, 2]);
  });
  widget.close();
  assert.deepEqual(
    frameCounters().filter(({ owner }) => owner === row.owner),
    [],
  );
});

test('remove forgets the stream and its names, so that it cannot be opened again', async () => {
  await readFirst(() => true);
  widget.remove(STREAM);
  assert.equal(
    widget.read(STREAM, () => true),
    undefined,
  );
});

test('closing ends watches and refuses reads and further watches; disposing closes', async () => {
  const watching = widget.watch(STREAM, () => {}, { rate: 0.001 });
  await readFirst(() => true);
  widget.close();
  widget.close();
  assert.equal(await watching, undefined);
  assert.equal(widget.isClosed, true);
  const isClosed = (error) => {
    assert.ok(error instanceof ClosedError);
    return error.message === 'The widget was closed';
  };
  assert.throws(() => widget.read(STREAM, () => {}), isClosed);
  await assert.rejects(
    widget.watch(STREAM, () => {}),
    isClosed,
  );
  const other = new Widget(names);
  assert.equal(
    other.read(STREAM, () => true),
    undefined,
    'its names are gone',
  );
  other[Symbol.dispose]();
  assert.equal(other.isClosed, true);
});

// Of another reader: that of a stream which stays locked sees no new picture.
async function expectUnlockedFor(other) {
  const seen = new Set();
  while (seen.size < 3) {
    other.read(STREAM, (frame) => seen.add(readCard(frame).number));
    await new Promise(setImmediate);
  }
}

for (const [what, end] of Object.entries({
  'a stream that its callback removes': () => widget.remove(STREAM),
  'a widget that its callback closes': () => widget.close(),
  'a widget whose callback closes it and throws': () => {
    widget.close();
    throw new Error('mine');
  },
})) {
  test(`${what} goes when the callback has returned, and is not left locked`, async (t) => {
    const other = new Widget(names);
    t.after(() => other.close());
    await expectUnlockedFor(other);
    let length;
    await readFirst((frame) => {
      try {
        end();
      } finally {
        length = frame.yPlaneBuffer.length;
      }
      return true;
    }).catch((error) => assert.equal(error.message, 'mine'));
    assert.equal(length, 640 * 360);
    const { delivered, released } = widget.counters()[0];
    assert.deepEqual([delivered, released], [1, 1]);
    await expectUnlockedFor(other);
    const late = new Widget(names);
    t.after(() => late.close());
    assert.equal(
      late.read(STREAM, () => true),
      undefined,
      'its names are gone',
    );
  });
}

test('a watch whose callback closes the widget ends', async () => {
  const watching = widget.watch(STREAM, () => widget.close(), { rate: 100 });
  assert.equal(await watching, undefined);
  assert.equal(widget.isClosed, true);
});

test('a stream is not read in the callback that reads it, and others are', async () => {
  await readFirst((frame) => {
    assert.throws(() => widget.read(STREAM, () => true), {
      message: 'The picture of remote-0 is being read: its callback must not read it again',
    });
    assert.equal(
      widget.read({ type: 'content', streamIndex: 0 }, () => true),
      undefined,
    );
    assert.equal(frame.yPlaneBuffer.length, 640 * 360);
    return true;
  });
  await expectReleased();
});

test('a stream that its callback changes is released as it was given', async (t) => {
  const other = new Widget(names);
  t.after(() => other.close());
  await expectUnlockedFor(other);
  const given = { ...STREAM };
  while (!widget.read(given, () => (given.streamIndex = 7))) await new Promise(setImmediate);
  await expectUnlockedFor(other);
});

test('streams, callbacks and options that are none are refused, and closing is as before', async () => {
  const none = { type: 'Remote', streamIndex: 0 };
  const noStream = {
    name: 'TypeError',
    message: "Wrong type 'Remote' of a stream, expected one of local, remote, content",
  };
  assert.throws(() => widget.read(none, () => {}), noStream);
  assert.throws(() => widget.remove(none), noStream);
  await assert.rejects(
    widget.watch(none, () => {}),
    noStream,
  );
  const noCallback = {
    name: 'TypeError',
    message: 'Wrong callback undefined, expected a function',
  };
  assert.throws(() => widget.read(STREAM), noCallback);
  await assert.rejects(widget.watch(STREAM), noCallback);
  await assert.rejects(
    widget.watch(STREAM, () => {}, 5),
    {
      name: 'TypeError',
      message: 'Wrong options 5 of watch, expected an object: { rate, signal }',
    },
  );
  await assert.rejects(
    widget.watch(STREAM, () => {}, { fps: 5 }),
    {
      name: 'TypeError',
      message: 'Unknown option fps of watch, expected one of rate, signal',
    },
  );
  const watching = widget.watch(STREAM, () => {}, { rate: 0.001 });
  widget.close();
  assert.equal(widget.isClosed, true);
  assert.equal(await watching, undefined);
});

test('closing ends the watches even when removing a stream fails', async () => {
  const watching = widget.watch(STREAM, () => {}, { rate: 0.001 });
  await readFirst(() => true);
  const removeVideo = () => {
    throw new Error('mine');
  };
  Object.defineProperty(widget.proxy, 'removeVideo', { value: removeVideo });
  assert.throws(() => widget.close(), { message: 'mine' });
  assert.equal(widget.isClosed, true);
  assert.equal(await watching, undefined);
});

test('a widget whose construction fails is not counted', async () => {
  const numberOf = (made) => Number(made.counters()[0].owner.replace('widget ', ''));
  await readFirst(() => true);
  for (const none of [{ shm_name: '/x' }, undefined]) assert.throws(() => new Widget(none));
  const other = new Widget(names);
  other.read(STREAM, () => true);
  const [number, next] = [widget, other].map(numberOf);
  other.close();
  assert.equal(next, number + 1);
});

test('names of the wrong type are rejected by the addon', () => {
  assert.throws(() => new Widget({ shm_name: '/x' }), {
    name: 'TypeError',
    message: 'Missing property sem_name on object SharedData',
  });
});

test('names that do not exist are rejected at once', () => {
  for (const [given, missing] of [
    [{ ...names, shm_name: '/nope' }, '/dev/shm/nope'],
    [{ ...names, sem_name: '/nope' }, '/dev/shm/sem.nope'],
    [{ shm_name: 'nope', sem_name: 'nope' }, '/dev/shm/nope, /dev/shm/sem.nope'],
  ]) {
    assert.throws(() => new Widget(given), {
      name: 'Error',
      message: `The memory of the meeting is not there, or not any more (missing: ${missing})`,
    });
  }
});

test('a widget in a second process sees the pictures and ends by itself', async () => {
  const child = fork(new URL('../../support/processes/face_widget_process.mjs', import.meta.url), {
    stdio: ['ignore', 'ignore', 'inherit', 'ipc'],
  });
  const exit = once(child, 'exit');
  child.send(names);
  const [cards] = await once(child, 'message');
  const [code, signal] = await exit;
  assert.deepEqual([code, signal], [0, null]);
  assert.equal(cards.length, 3);
  for (const card of cards) assert.deepEqual([card.type, card.streamIndex], ['remote', 0]);
});
