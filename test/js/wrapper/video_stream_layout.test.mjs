// updateVideoStreamsState.

import assert from 'node:assert/strict';
import { after, beforeEach, test } from 'node:test';

import { stepsApart } from '../../support/scripted/captured_lines.mjs';
import {
  assertCalls,
  assertPassesOn,
  assertRefused,
  testArgument,
  testEngineFailures,
  testRecord,
} from '../../support/scripted/method_tests.mjs';
import {
  records,
  videoStreamInfo,
  watched,
  resizedByItsFirst,
  without,
  WRONG_VALUES,
} from '../../support/scripted/records.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';
import { goodArguments } from '../../support/scripted/good_arguments.mjs';
import { construct } from '../../support/scripted/wrapper_kit.mjs';

const wrapper = construct();

beforeEach(engine.reset);
after(() => wrapper.destroy());

const method = 'updateVideoStreamsState';
const args = goodArguments[method];
const LINE = 'Found array object inside VideoStreamInfos';

const paramsOf = (VideoStreamInfos, VideoOccupancyConstraints) => ({
  VideoStreamState: { VideoStreamInfos, VideoOccupancyConstraints },
});

// The engine's { streams, constraints }.
function received(infos, occupancies) {
  engine.clearCalls();
  wrapper.updateVideoStreamsState(paramsOf(infos, occupancies));
  const [call, ...more] = engine.takeCalls();
  assert.deepEqual([call.operation, more], ['UpdateVideoStreamsState', []]);
  return call.args;
}

// The engine's record of one tile.
function limitsOf(tile) {
  const { streams, constraints } = received([], [[tile]]);
  assert.deepEqual([streams, constraints.length, constraints[0].length], [[], 1, 1]);
  return constraints[0][0];
}

const limits = (maxQuality, maxFrameRate, minQuality, minFrameRate) => ({
  maxQuality,
  maxFrameRate,
  minQuality,
  minFrameRate,
});

const NO_LIMITS = limits(0, 0, 0, 0);

function assertStateRefused(state, type, message) {
  assertRefused(() => wrapper.updateVideoStreamsState({ VideoStreamState: state }), type, message);
}

const NO_OBJECT = 'Cannot convert undefined or null to object';

// ---- The whole

test('updateVideoStreamsState passes every field to the engine', () => {
  assertCalls(() => wrapper.updateVideoStreamsState(...args()), {
    operation: 'UpdateVideoStreamsState',
    args: {
      streams: [
        { ssrc: 11, participantSsrc: 12, speakerGroup: 13, priority: 14 },
        { ssrc: 21, participantSsrc: 22, speakerGroup: 23, priority: 24 },
      ],
      constraints: [[limits(720, 30, 180, 7)], [limits(360, 15, 90, 3), limits(90, 7, 45, 3)]],
    },
  });
});

test('updateVideoStreamsState accepts empty arrays', () => {
  assert.deepEqual(received([], []), { streams: [], constraints: [] });
});

test('updateVideoStreamsState keeps empty occupancies and tiles without limits', () => {
  assert.deepEqual(received([], [[], [{}]]).constraints, [[], [NO_LIMITS]]);
});

test('updateVideoStreamsState accepts long arrays', () => {
  const infos = Array.from({ length: 5000 }, (_, i) => ({
    ssrc: i,
    participantSsrc: i + 1,
    speakerGroup: i + 2,
    priority: i + 3,
  }));
  const occupancies = infos.map((_, i) => new Array(i % 3).fill({ maxfps: 30 }));
  const { streams, constraints } = received(infos, occupancies);
  assert.deepEqual(streams, infos);
  assert.deepEqual(
    constraints,
    occupancies.map((tiles) => tiles.map(() => limits(0, 30, 0, 0))),
  );
});

testArgument({ wrapper, method, type: 'Object', args, counted: false });
testEngineFailures({ wrapper, method, args, operations: ['UpdateVideoStreamsState'] });

const OCCUPANCY_LIMITS = ['maxquality', 'maxfps', 'minquality', 'minfps'];

// The expected accesses, in order.
function expectedReads({ VideoStreamState: state }) {
  const infos = 'VideoStreamState.VideoStreamInfos';
  const occupancies = 'VideoStreamState.VideoOccupancyConstraints';
  return [
    ...['has VideoStreamState', 'get VideoStreamState', 'get VideoStreamState'],
    ...[`getOwnPropertyDescriptor ${infos}`, `get ${infos}`],
    ...state.VideoStreamInfos.flatMap((_, i) => [
      `get ${infos}[${i}]`,
      ...['ssrc', 'participantSsrc', 'speakerGroup', 'priority'].flatMap((name) => {
        const here = `${infos}[${i}].${name}`;
        return [`has ${here}`, `get ${here}`, `get ${here}`];
      }),
    ]),
    ...[`getOwnPropertyDescriptor ${occupancies}`, `get ${occupancies}`],
    ...state.VideoOccupancyConstraints.flatMap((tiles, i) => [
      `get ${occupancies}[${i}]`,
      ...tiles.flatMap((_, j) => [
        `get ${occupancies}[${i}][${j}]`,
        ...OCCUPANCY_LIMITS.flatMap((name) => {
          const here = `${occupancies}[${i}][${j}].${name}`;
          const own = `getOwnPropertyDescriptor ${here}`;
          return [own, `get ${here}`, `has ${here}`, `get ${here}`, `get ${here}`];
        }),
      ]),
    ]),
  ];
}

testRecord({
  method,
  record: records.updateVideoStreamsState,
  good: () => args()[0],
  call: (params) => wrapper.updateVideoStreamsState(params),
  reads: expectedReads(args()[0]),
});

// ---- Streams

testRecord({
  method: `${method}, for a stream,`,
  record: videoStreamInfo,
  good: () => args()[0].VideoStreamState.VideoStreamInfos[1],
  call: (info) => wrapper.updateVideoStreamsState(paramsOf([info], [])),
});

test('a stream without a property is refused with an empty object name', () => {
  const [info] = args()[0].VideoStreamState.VideoStreamInfos;
  for (const [name, text] of [
    ['ssrc', 'Missing property ssrc on object '],
    ['speakerGroup', 'Missing property speakerGroup on object '],
  ]) {
    const rest = without(info, name);
    assertStateRefused(paramsOf([info, rest], []).VideoStreamState, TypeError, text);
  }
  assertStateRefused(
    paramsOf([{ ...info, priority: '1' }], []).VideoStreamState,
    TypeError,
    'Wrong type for property priority on object , expected Number',
  );
});

for (const [given, wide, narrow] of [
  [65535, 65535, 65535],
  [65536, 65536, 0],
  [65537, 65537, 1],
  [70000, 70000, 4464],
  [70000.9, 70000, 4464],
  [-1, 4294967295, 65535],
  [-65536, 4294901760, 0],
  [2147483647, 2147483647, 65535],
  [2147483648, 2147483648, 0],
  [4294967295, 4294967295, 65535],
  [4294967297, 1, 1],
  [-0.5, 0, 0],
  [NaN, 0, 0],
  [-Infinity, 0, 0],
  [1e300, 0, 0],
]) {
  test(`${given} for a stream is ${wide} in 32 bits and ${narrow} in 16`, () => {
    const zeros = { ssrc: 0, participantSsrc: 0, speakerGroup: 0, priority: 0 };
    for (const [name, expected] of [
      ['ssrc', wide],
      ['participantSsrc', wide],
      ['speakerGroup', narrow],
      ['priority', narrow],
    ]) {
      assert.deepEqual(received([{ ...zeros, [name]: given }], []).streams, [
        { ...zeros, [name]: expected },
      ]);
    }
  });
}

test('a primitive value in place of a stream is read as its wrapper object', () => {
  const text = 'Missing property ssrc on object ';
  for (const element of [5, 'text', true, 1n, Symbol('stream'), [], () => {}, {}]) {
    assertStateRefused(paramsOf([element], []).VideoStreamState, TypeError, text);
  }
});

test('null, undefined and a hole in place of a stream are refused', () => {
  for (const infos of [[null], [undefined], new Array(1)]) {
    assertStateRefused(paramsOf(infos, []).VideoStreamState, TypeError, NO_OBJECT);
  }
});

// ---- Limits

test('a limit is passed on only when it is a value of its ladder', () => {
  const values = Array.from({ length: 1001 }, (_, i) => i);
  const { constraints } = received(
    [],
    [
      values.map((value) => ({
        maxquality: value,
        maxfps: value,
        minquality: value,
        minfps: value,
      })),
    ],
  );
  const onLadder = (ladder) => (value) => (ladder.includes(value) ? value : 0);
  const quality = onLadder([45, 90, 180, 360, 720]);
  const frameRate = onLadder([3, 7, 15, 30]);
  assert.deepEqual(
    constraints[0],
    values.map((v) => limits(quality(v), frameRate(v), quality(v), frameRate(v))),
  );
});

for (const [what, tile, expected] of [
  [
    'on the ladders',
    { maxquality: 720, maxfps: 30, minquality: 180, minfps: 7 },
    [720, 30, 180, 7],
  ],
  ['that are not on the ladders', { maxquality: 700, maxfps: 25 }, [0, 0, 0, 0]],
  ['that are on the ladder of the other kind', { maxquality: 30, maxfps: 90 }, [0, 0, 0, 0]],
  ['above their maximum', { maxquality: 45, minquality: 720, minfps: 30 }, [45, 0, 720, 30]],
  ['with fractions', { maxquality: 720.9, maxfps: 30.5, minfps: 6.9 }, [720, 30, 0, 0]],
  ['below zero', { maxquality: -720, maxfps: -30, minquality: -1, minfps: -3 }, [0, 0, 0, 0]],
  ['at the ends of 32 bits', { maxquality: 2 ** 31, maxfps: -(2 ** 31) }, [0, 0, 0, 0]],
  ['below the ends of 32 bits', { maxquality: 2 ** 32 - 1, maxfps: 2 ** 31 - 1 }, [0, 0, 0, 0]],
  ['beyond 32 bits', { maxquality: 2 ** 32 + 720, maxfps: 2 ** 32 + 30 }, [720, 30, 0, 0]],
  ['that are not finite', { maxquality: NaN, maxfps: Infinity }, [0, 0, 0, 0]],
  ['that are huge', { maxquality: 1e300, maxfps: -1e300 }, [0, 0, 0, 0]],
  ['that are inherited', Object.create({ maxquality: 720, maxfps: 30 }), [0, 0, 0, 0]],
  [
    'of which one is inherited',
    Object.assign(Object.create({ maxquality: 720 }), { maxfps: 30 }),
    [0, 30, 0, 0],
  ],
  ['without a prototype', Object.assign(Object.create(null), { minfps: 15 }), [0, 0, 0, 15]],
  ['on a function', Object.assign(() => {}, { minquality: 90 }), [0, 0, 90, 0]],
  ['on an array', Object.assign([], { maxquality: 90 }), [90, 0, 0, 0]],
  ['that are not enumerable', Object.defineProperty({}, 'maxfps', { value: 15 }), [0, 15, 0, 0]],
]) {
  test(`limits ${what} arrive as ${expected.join(', ')}`, () => {
    assert.deepEqual(limitsOf(tile), limits(...expected));
  });
}

for (const name of OCCUPANCY_LIMITS) {
  test(`${name} of a type other than number counts as absent`, () => {
    for (const wrong of [...WRONG_VALUES.Number, '720', '30', false]) {
      const rest = { maxquality: 45, maxfps: 3, minquality: 45, minfps: 3 };
      const expected = OCCUPANCY_LIMITS.map((each) => (each === name ? 0 : rest[each]));
      assert.deepEqual(limitsOf({ ...rest, [name]: wrong }), limits(...expected));
    }
  });
}

test('a primitive value in place of a tile has no limits', () => {
  for (const tile of [5, 'text', true, 1n, Symbol('tile'), []]) {
    assert.deepEqual(limitsOf(tile), NO_LIMITS);
  }
});

test('null, undefined and a hole in place of a tile are refused', () => {
  for (const tiles of [[null], [undefined], new Array(1)]) {
    assertStateRefused(paramsOf([], [[{}], tiles]).VideoStreamState, TypeError, NO_OBJECT);
  }
});

test('a limit that is not a number is read once, and an absent one is not read', () => {
  const log = [];
  const tile = watched({ maxquality: 'text', minfps: 15 }, log, 'tile');
  assert.deepEqual(limitsOf(tile), limits(0, 0, 0, 15));
  assert.deepEqual(log, [
    ...['getOwnPropertyDescriptor tile.maxquality', 'get tile.maxquality'],
    'getOwnPropertyDescriptor tile.maxfps',
    'getOwnPropertyDescriptor tile.minquality',
    ...['getOwnPropertyDescriptor tile.minfps', 'get tile.minfps'],
    ...['has tile.minfps', 'get tile.minfps', 'get tile.minfps'],
  ]);
});

for (const [reading, type, message] of [
  [2, TypeError, 'Wrong type for property maxfps on object , expected Number'],
  [3, Error, 'A number was expected'],
]) {
  test(`a limit that is not a number at read ${reading} is refused`, () => {
    let readings = 0;
    const get = () => (++readings < reading ? 30 : 'text');
    const tile = Object.defineProperty({}, 'maxfps', { get });
    assertStateRefused(paramsOf([], [[tile]]).VideoStreamState, type, message);
    assert.equal(readings, reading);
  });
}

test('an exception from reading a limit is passed on', () => {
  const thrown = new RangeError('thrown by a trap');
  const throwIt = () => {
    throw thrown;
  };
  for (const name of OCCUPANCY_LIMITS) {
    for (const operation of ['getOwnPropertyDescriptor', 'get', 'has']) {
      const trap = (target, key, ...rest) =>
        key === name ? throwIt() : Reflect[operation](target, key, ...rest);
      const tile = new Proxy({ [name]: 30 }, { [operation]: trap });
      assertPassesOn(
        () => wrapper.updateVideoStreamsState(paramsOf([], [[tile]])),
        thrown,
        `${operation} ${name}`,
      );
    }
  }
});

// ---- The two arrays

const ARRAYS = [
  {
    name: 'VideoStreamInfos',
    missing: 'VideoStreamInfos object missing',
    noArray: 'VideoStreamInfos object is not an Array',
  },
  {
    name: 'VideoOccupancyConstraints',
    missing: 'VideoOccupancyConstraints object is missing',
    noArray: 'VideoOccupancyConstraints object is not an array',
  },
];

for (const { name, missing, noArray } of ARRAYS) {
  const state = () => ({ VideoStreamInfos: [], VideoOccupancyConstraints: [] });

  test(`a state without ${name} is refused`, () => {
    assertStateRefused(without(state(), name), TypeError, missing);
  });

  test(`a state that inherits ${name} is refused`, () => {
    const { [name]: inherited, ...own } = state();
    const heir = Object.assign(Object.create({ [name]: inherited }), own);
    assertStateRefused(heir, TypeError, missing);
  });

  test(`a state whose ${name} is not an array is refused`, () => {
    for (const wrong of WRONG_VALUES.Array) {
      if (wrong === null || wrong === undefined) continue;
      assertStateRefused({ ...state(), [name]: wrong }, TypeError, noArray);
    }
  });

  test(`a state whose ${name} is null or undefined is refused like such an element`, () => {
    for (const wrong of [null, undefined]) {
      assertStateRefused({ ...state(), [name]: wrong }, TypeError, NO_OBJECT);
    }
  });

  test(`an exception from reading ${name} is passed on`, () => {
    for (const operation of ['getOwnPropertyDescriptor', 'get']) {
      const thrown = new RangeError('thrown by a trap');
      const trap = (target, key, ...rest) => {
        if (key === name) throw thrown;
        return Reflect[operation](target, key, ...rest);
      };
      const params = { VideoStreamState: new Proxy(state(), { [operation]: trap }) };
      assertPassesOn(() => wrapper.updateVideoStreamsState(params), thrown, operation);
    }
  });
}

test('all VideoStreamInfos are read before VideoOccupancyConstraints', () => {
  assertStateRefused({}, TypeError, ARRAYS[0].missing);
  assertStateRefused(paramsOf({}, {}).VideoStreamState, TypeError, ARRAYS[0].noArray);
  assertStateRefused(
    paramsOf([{}], 5).VideoStreamState,
    TypeError,
    'Missing property ssrc on object ',
  );
});

test('a state that is a function or an array is accepted', () => {
  for (const state of [() => {}, []]) {
    Object.assign(state, args()[0].VideoStreamState);
    assert.equal(wrapper.updateVideoStreamsState({ VideoStreamState: state }), undefined);
  }
  assert.equal(engine.calls().length, 2);
  assert.deepEqual(engine.calls()[0], engine.calls()[1]);
});

test('a state that is an object on the first read only has no arrays', () => {
  for (const [second, message] of [
    [5, ARRAYS[0].missing],
    [undefined, NO_OBJECT],
  ]) {
    let readings = 0;
    const get = () => (readings++ === 0 ? {} : second);
    const params = Object.defineProperty({}, 'VideoStreamState', { get });
    assertRefused(() => wrapper.updateVideoStreamsState(params), TypeError, message);
  }
});

test('an occupancy that is not an array is refused', () => {
  const text = 'videoOccupancyConstraintValue object is not an Array';
  assertStateRefused(paramsOf([], [5]).VideoStreamState, TypeError, text);
  for (const wrong of WRONG_VALUES.Array) {
    assertStateRefused(paramsOf([], [[{}], wrong]).VideoStreamState, TypeError, text);
  }
  assertStateRefused(paramsOf([], new Array(1)).VideoStreamState, TypeError, text);
});

test('the current length counts while arrays change their length', () => {
  const info = (ssrc) => ({ ssrc, participantSsrc: 1, speakerGroup: 2, priority: 3 });
  const tile = (i) => ({ maxfps: i === 0 ? 3 : 7 });
  const limitsOfTile = (i) => limits(0, i === 0 ? 3 : 7, 0, 0);
  for (const after of [[0], [0, 5], [0, 1, 2, 3, 4, 5, 6]]) {
    const changing = (make) => resizedByItsFirst([0, 1, 2].map(make), after.map(make));
    const { streams, constraints } = received(
      changing(info),
      changing((i) => [tile(i)]),
    );
    assert.deepEqual(streams, after.map(info));
    assert.deepEqual(
      constraints,
      after.map((i) => [limitsOfTile(i)]),
    );
    assert.deepEqual(received([], [changing(tile)]).constraints, [after.map(limitsOfTile)]);
  }
});

// ---- What is printed

test('one line says that the array was found, even when a later check fails', () => {
  const outcomes = stepsApart(({ wrapper: apart, goodArguments, engine: scripted }) => {
    const call = (infos, occupancies) => () =>
      apart.updateVideoStreamsState({
        VideoStreamState: { VideoStreamInfos: infos, VideoOccupancyConstraints: occupancies },
      });
    return [
      call([], []),
      () => apart.updateVideoStreamsState(...goodArguments.updateVideoStreamsState()),
      call([{}], []),
      call([], {}),
      call([], [5]),
      call([], [[null]]),
      () => apart.updateVideoStreamsState({ VideoStreamState: { VideoStreamInfos: [] } }),
      call({}, []),
      () => apart.updateVideoStreamsState({ VideoStreamState: {} }),
      () => apart.updateVideoStreamsState({}),
      () => apart.updateVideoStreamsState(),
      () => scripted.failOperation('UpdateVideoStreamsState', { throws: 'no layout' }),
      call([], []),
    ];
  });
  const lines = [LINE];
  assert.deepEqual(outcomes, [
    { lines, error: null },
    { lines, error: null },
    { lines, error: 'Missing property ssrc on object ' },
    { lines, error: 'VideoOccupancyConstraints object is not an array' },
    { lines, error: 'videoOccupancyConstraintValue object is not an Array' },
    { lines, error: NO_OBJECT },
    { lines, error: 'VideoOccupancyConstraints object is missing' },
    { lines: [], error: 'VideoStreamInfos object is not an Array' },
    { lines: [], error: 'VideoStreamInfos object missing' },
    { lines: [], error: 'Missing property VideoStreamState on object VideoStreamState' },
    { lines: [], error: 'Wrong argument type for argument 0, expected Object' },
    { lines: [], error: null },
    { lines, error: 'no layout' },
  ]);
});
