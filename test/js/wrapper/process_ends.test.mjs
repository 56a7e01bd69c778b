// The end of a process with wrappers: its exit code, the events before it, and no names left in
// /dev/shm.

import assert from 'node:assert/strict';
import { existsSync, rmSync } from 'node:fs';
import { test } from 'node:test';

import { runInChild } from '../../support/child.mjs';

const OPTIONS = { modules: ['./support/scripted/wrapper_kit.mjs'] };

// The files of the segments and semaphores that a process says it created.
function filesCreatedIn(lines) {
  return lines.flatMap((line) => {
    const [, segment, semaphore] =
      line.match(/^initialize: .* name:\/(\w+), SEM name:\/(\w+)$/) ?? [];
    return segment ? [`/dev/shm/${segment}`, `/dev/shm/sem.${semaphore}`] : [];
  });
}

// Runs a script whose process has to end with this code, with this text on its standard error (as a
// part, or nothing at all), and without the files of its segments, so many of them. Answers with
// what it said.
function saidUntilEnd(script, { code = 0, error = '', segments = 1, args } = {}) {
  const child = runInChild(script, { ...OPTIONS, args });
  const { signal, stderr, said } = child;
  assert.deepEqual({ code: child.code, signal }, { code, signal: null }, stderr);
  if (error) assert.equal(stderr.includes(error), true, stderr);
  else assert.equal(stderr, '');
  const files = filesCreatedIn(child.lines);
  assert.equal(files.length, 2 * segments);
  assert.deepEqual(files.filter(existsSync), []);
  return said;
}

test('the names that a wrapper prints are in /dev/shm while its process runs', () => {
  const { lines } = runInChild(({ construct }) => {
    construct();
    process.kill(process.pid, 'SIGKILL');
  }, OPTIONS);
  const files = filesCreatedIn(lines);
  try {
    assert.deepEqual(files.map(existsSync), [true, true]);
  } finally {
    for (const file of files) rmSync(file);
  }
});

// ---- By itself

test('after destroy a process ends by itself once the queued events have arrived', () => {
  const said = saidUntilEnd(({ construct, engine, say }) => {
    let arrived = 0;
    const wrapper = construct();
    wrapper.on('micLevel', () => ++arrived);
    engine.fireMany({ threads: 4, count: 1000, notification: 'NotifyMicLevel', args: [1] });
    wrapper.destroy();
    engine.fire('NotifyMicLevel', 1);
    process.on('exit', () => say(`${arrived} events`));
  });
  assert.deepEqual(said, ['4001 events']);
});

test('queued events arrive before the end even when nothing refers to their wrapper', () => {
  const said = saidUntilEnd(({ collectGarbage, construct, engine, say }) => {
    const subscribeAndDestroy = () => {
      const wrapper = construct();
      wrapper.on('micLevel', ({ level }) => say(`level ${level}`));
      engine.fire('NotifyMicLevel', 1);
      wrapper.destroy();
      engine.fire('NotifyMicLevel', 2);
    };
    subscribeAndDestroy();
    collectGarbage();
  });
  assert.deepEqual(said, ['level 1', 'level 2']);
});

test('a process ends by itself after its last wrapper was destroyed', () => {
  const said = saidUntilEnd(
    ({ construct, engine, say }) => {
      const [first, second] = [construct(), construct()];
      first.destroy();
      second.on('micLevel', () => {
        say('event');
        second.destroy();
      });
      setTimeout(() => engine.fire('NotifyMicLevel', 1)).unref();
    },
    { segments: 2 },
  );
  assert.deepEqual(said, ['event']);
});

test('without destroy a process stays alive for later events', () => {
  const said = saidUntilEnd(
    ({ construct, engine, say }) => {
      process.on('beforeExit', () => say('nothing keeps the process'));
      globalThis.wrapper = construct();
      globalThis.wrapper.on('micLevel', () => process.exit(7));
      // Which does not keep the process either.
      setTimeout(() => engine.fire('NotifyMicLevel', 1)).unref();
    },
    { code: 7 },
  );
  assert.deepEqual(said, []);
});

test('a process ends by itself after its wrappers were collected', () => {
  saidUntilEnd(async ({ construct, collect }) => {
    construct();
    await collect();
  });
});

test('a process may end by itself while engine threads send notifications', () => {
  saidUntilEnd(({ construct, engine }) => {
    const wrapper = construct();
    wrapper.destroy();
    engine.fireManyAsync({
      threads: 4,
      count: 100_000,
      notification: 'NotifyEvent',
      args: ['name', 'body'],
    });
  });
});

test('wrappers that JavaScript holds until the end are released then', () => {
  saidUntilEnd(({ construct }) => {
    globalThis.wrapper = construct();
    globalThis.wrapper.destroy();
  });
});

// ---- By process.exit()

for (const [where, script, said = []] of [
  [
    'outside of all calls',
    ({ construct }) => {
      globalThis.wrapper = construct();
      setImmediate(() => process.exit(7));
    },
  ],
  [
    'in a listener, with more events queued',
    ({ construct, engine, say }) => {
      globalThis.wrapper = construct();
      globalThis.wrapper.on('micLevel', ({ level }) => {
        say(level);
        process.exit(6 + level);
      });
      engine.fireMany({ threads: 1, count: 3, notification: 'NotifyMicLevel', args: [1] });
    },
    ['1'],
  ],
  [
    'in a listener, while engine threads go on notifying',
    ({ construct, engine }) => {
      globalThis.wrapper = construct();
      globalThis.wrapper.on('eventNotify', () => process.exit(7));
      engine.fireManyAsync({
        threads: 4,
        count: 100_000,
        notification: 'NotifyEvent',
        args: ['name', 'body'],
      });
    },
  ],
  [
    'in the emitter factory',
    ({ PARAMS, engine }) => {
      const { TesselWrapper } = engine.loadAddon();
      TesselWrapper._internal_setEmitterFactory(() => process.exit(7));
      new TesselWrapper(PARAMS);
    },
  ],
  [
    "in the emitter's own on",
    ({ construct }) => construct({ emitter: { on: () => process.exit(7) } }).on('x', () => {}),
  ],
  [
    'behind the destruction of the wrapper',
    ({ construct, engine }) => {
      const wrapper = construct();
      engine.fire('NotifyMicLevel', 1);
      wrapper.destroy();
      process.exit(7);
    },
  ],
  [
    'with a last call of every wrapper',
    ({ construct, engine, say }) => {
      const wrapper = construct();
      process.on('exit', () => {
        wrapper.destroy();
        engine.fire('NotifyMicLevel', 1);
        say(engine.operations().slice(-2).join(', '));
      });
      process.exit(7);
    },
    ['DeInitialize, DestroyTSLMManager'],
  ],
]) {
  test(`process.exit() works ${where}`, () => {
    assert.deepEqual(saidUntilEnd(script, { code: 7 }), said);
  });
}

// ---- By an unhandled error

for (const [where, script, error] of [
  [
    'in a listener',
    ({ construct, engine }) => {
      globalThis.wrapper = construct();
      globalThis.wrapper.on('micLevel', ({ level }) => {
        throw new RangeError(`level ${level}`);
      });
      engine.fireMany({ threads: 1, count: 3, notification: 'NotifyMicLevel', args: [1] });
    },
    'RangeError: level 1',
  ],
  [
    'in a listener, while engine threads go on notifying',
    ({ construct, engine }) => {
      globalThis.wrapper = construct();
      globalThis.wrapper.on('eventNotify', ({ eventBody }) => {
        throw new RangeError(eventBody);
      });
      engine.fireManyAsync({
        threads: 4,
        count: 100_000,
        notification: 'NotifyEvent',
        args: ['name', 'body'],
      });
    },
    'RangeError: body',
  ],
  [
    'in a promise of a listener',
    ({ construct, engine }) => {
      globalThis.wrapper = construct();
      globalThis.wrapper.on('micLevel', async ({ level }) => {
        await null;
        throw new RangeError(`level ${level}`);
      });
      engine.fire('NotifyMicLevel', 2);
    },
    'RangeError: level 2',
  ],
  [
    'outside of all calls',
    ({ construct }) => {
      globalThis.wrapper = construct();
      setImmediate(() => {
        throw new RangeError('outside');
      });
    },
    'RangeError: outside',
  ],
  [
    'out of the constructor',
    ({ PARAMS, engine }) => {
      const { TesselWrapper } = engine.loadAddon();
      TesselWrapper._internal_setEmitterFactory(() => {
        throw new RangeError('in the factory');
      });
      setImmediate(() => new TesselWrapper(PARAMS));
    },
    'RangeError: in the factory',
  ],
  [
    'out of destroy()',
    ({ construct, engine }) => {
      globalThis.wrapper = construct();
      engine.failOperation('DeInitialize', { throwsInt: true });
      setImmediate(() => globalThis.wrapper.destroy());
    },
    'Error: A native exception was thrown',
  ],
]) {
  test(`an error that is thrown ${where} ends the process with code 1`, () => {
    assert.deepEqual(saidUntilEnd(script, { code: 1, error }), []);
  });
}

// ---- With a proxy, or with streams in widget mode

test('a process that reads the segments of a killed one removes their names on process.exit()', () => {
  const killed = runInChild(({ construct, say }) => {
    say(JSON.stringify(construct().getSharedDataInfo()));
    process.kill(process.pid, 'SIGKILL');
  }, OPTIONS);
  const reading = ({ engine }) => {
    const { TesselWrapperProxy } = engine.loadAddon();
    globalThis.proxy = new TesselWrapperProxy(JSON.parse(process.argv[1]));
    process.exit(7);
  };
  assert.deepEqual(saidUntilEnd(reading, { code: 7, args: killed.said }), []);
});

for (const [how, script, expected] of [
  [
    'by itself',
    ({ constructInWidgetMode }) => {
      globalThis.wrapper = constructInWidgetMode();
      globalThis.wrapper.destroy();
    },
    { code: 0 },
  ],
  [
    'by process.exit()',
    ({ constructInWidgetMode }) => {
      globalThis.wrapper = constructInWidgetMode();
      process.exit(7);
    },
    { code: 7 },
  ],
  [
    'by an error',
    ({ constructInWidgetMode }) => {
      globalThis.wrapper = constructInWidgetMode();
      throw new RangeError('outside');
    },
    { code: 1, error: 'RangeError: outside' },
  ],
]) {
  test(`a process may end ${how} while frames are copied into a segment`, () => {
    assert.deepEqual(saidUntilEnd(script, { ...expected, segments: 2 }), []);
  });
}
