// Random arguments for every method and constructor of both classes.

import assert from 'node:assert/strict';
import { inspect } from 'node:util';

import { addonFile } from '../../support/build.mjs';
import {
  EventEmitter,
  PARAMS,
  collect,
  construct,
  engine,
} from '../../support/scripted/wrapper_kit.mjs';
import { goodArguments } from '../../support/scripted/good_arguments.mjs';
import {
  OwnThrow,
  anything,
  randomArguments,
  throwOwn,
} from '../../support/reliability/random_values.mjs';
import { traced } from '../../support/reliability/traced_value.mjs';
import { remote } from '../../support/streams.mjs';

const { TesselWrapper, TesselWrapperProxy } = engine.loadAddon();

// The errors of the addon, and of Node.js for it.
const ERRORS = [
  /^Wrong number of arguments, expected \d+$/,
  /^Wrong argument type for argument \d+, expected \w+$/,
  /^Missing property \w+ on object \w*$/,
  /^Wrong type for property \w+ on object \w*, expected \w+$/,
  /^Invalid value for type \w+, expected [\w|]+$/,
  /^Video(StreamInfos|OccupancyConstraints) object (is )?(missing|not an Array)$/i,
  /^VideoOccupancyConstraintValue object is not an Array$/i,
  // Node-API's own.
  /^An? \w+ was expected$/,
  /^Invalid argument$/,
  // JavaScript's own.
  /^Illegal invocation$/,
  /^Class constructors cannot be invoked without 'new'$/,
  /^Cannot convert undefined or null to object$/,
  /^Cannot perform '\w+' on a proxy that has been revoked$/,
  /^'\w+' on proxy: /,
];

const SIZE = { width: 64, height: 36 };
// Whose frames are pulled: the stream of the good arguments.
const PULLED = remote(3);
const SHARED = remote(9);
const SHARED_BY_HOST = remote(10);
// Others that random values may name.
const OTHERS = [
  { type: 'local', streamIndex: 0 },
  { type: 'content', streamIndex: 0 },
  { type: 'remote', streamIndex: 1 },
];
const NO_FRAME = -1;
const COLLECTED_EVERY = 50; // rounds

const calls = { made: 0, refused: 0, passed: 0 };

// All events, kept for as long as the trial runs.
const emitter = new EventEmitter().setMaxListeners(0);
const makeWrapper = () => construct({ emitter });

// ---- One call

// Calls it: { made } or { error }, which is an allowed one. A refused call does not reach the
// engine, not even in part.
function attempt(name, call, { mayReach = () => false } = {}) {
  engine.clearCalls();
  ++calls.made;
  try {
    const made = call();
    ++calls.passed;
    return { made };
  } catch (error) {
    ++calls.refused;
    if (!(error instanceof OwnThrow)) {
      const isAllowed = ERRORS.some((text) => text.test(error?.message));
      assert.ok(isAllowed, `${name} threw ${error?.stack ?? String(error)}`);
    }
    if (!mayReach()) assert.deepEqual(engine.operations(), [], name);
    return { error };
  }
}

const hasAskedEngine = () => engine.operations().length > 0;
const isPicture = (frame) => frame.width === SIZE.width && frame.yPlaneBuffer.length > 0;

// ---- Receivers

function loadAgain() {
  const module = { exports: {} };
  process.dlopen(module, addonFile);
  return module.exports;
}

// For each class `right`, other instances than the usual one, and `wrong`, all that comes near to
// one. `wrappers` are those to be destroyed in the end.
function makeReceivers(wrapper, proxy) {
  const key = wrapper.getSharedDataInfo();
  const another = loadAgain();
  const Derived = class extends TesselWrapper {};
  const DerivedProxy = class extends TesselWrapperProxy {};
  const derived = new Derived(PARAMS);
  const derivedProxy = new DerivedProxy(key);
  const destroyed = makeWrapper();
  destroyed.destroy();
  const foreign = new another.TesselWrapper(PARAMS);
  const foreignProxy = new another.TesselWrapperProxy(key);
  const allButOne = (type, instance, subclass) => [
    ...[type, type.prototype, subclass.prototype, another[type.name].prototype],
    ...[Object.create(instance), Object.create(type.prototype), new Proxy(instance, {})],
    ...[Reflect.construct(Object, [], type), foreign, foreignProxy],
  ];
  return {
    wrappers: [wrapper, derived, foreign],
    TesselWrapper: {
      usual: wrapper,
      right: [derived, destroyed],
      wrong: [...allButOne(TesselWrapper, wrapper, Derived), proxy, derivedProxy],
    },
    TesselWrapperProxy: {
      usual: proxy,
      right: [derivedProxy],
      wrong: [...allButOne(TesselWrapperProxy, proxy, DerivedProxy), wrapper, derived],
    },
  };
}

function choose({ usual, right, wrong }, random) {
  if (random.chance(0.9)) return { receiver: usual, isRight: true };
  if (random.chance(0.3)) return { receiver: random.of(right), isRight: true };
  return { receiver: random.chance(0.3) ? anything(random) : random.of(wrong), isRight: false };
}

// One random call of a method: its outcome, and its receiver.
function callMethod(type, name, args, receivers, random) {
  const { receiver, isRight } = choose(receivers, random);
  const outcome = attempt(`${type.name}.${name}`, () =>
    Reflect.apply(type.prototype[name], receiver, args),
  );
  if (!isRight) {
    assert.equal(outcome.error?.message, 'Illegal invocation', `${name} on ${inspect(receiver)}`);
  }
  return { ...outcome, receiver, isUsual: receiver === receivers.usual };
}

// ---- Targets: { name, call(random) }, which calls it once and answers with whether that had an
// effect.

const WRAPPER_EFFECTS = {
  getFrame: ({ made }) => isPicture(made),
  getLastFrame: ({ made }) => isPicture(made),
  getSharedDataInfo: ({ made }) => made.shm_name.startsWith('/SHM'),
  // Frames are given back by asking for the next one: it does nothing.
  releaseFrame: () => true,
};

// A second call of these reaches the engine otherwise than the first.
const NOT_REPEATABLE = ['enterWidgetMode'];

// What the engine is told follows from what each property answered last: it is told the same again
// when plain objects say so.
function assertToldWhatWasRead(name, receiver, plain) {
  const told = engine.takeCalls();
  receiver[name](...plain);
  assert.deepEqual(engine.takeCalls(), told, `${name} of ${inspect(plain, { depth: null })}`);
}

const wrapperTarget = (name, receivers) => ({
  name: `TesselWrapper.${name}`,
  call(random) {
    const trace = randomArguments(goodArguments[name], random).map(traced);
    const args = trace.map(({ value }) => value);
    const outcome = callMethod(TesselWrapper, name, args, receivers, random);
    if (outcome.error) return false;
    const isEffect = WRAPPER_EFFECTS[name] ?? hasAskedEngine;
    const hadEffect = outcome.isUsual && isEffect(outcome);
    if (!NOT_REPEATABLE.includes(name)) {
      const plain = trace.map((each) => each.plain());
      assertToldWhatWasRead(name, outcome.receiver, plain);
    }
    return hadEffect;
  },
});

const onTarget = (receivers) => ({
  name: 'TesselWrapper.on',
  call(random) {
    const args = randomArguments(goodArguments.on, random);
    const { error, isUsual } = callMethod(TesselWrapper, 'on', args, receivers, random);
    const hadEffect = !error && isUsual && emitter.eventNames().length > 0;
    emitter.removeAllListeners();
    return hadEffect;
  },
});

// On a wrapper of its own each time.
const destroyTarget = (receivers) => ({
  name: 'TesselWrapper.destroy',
  call(random) {
    const usual = makeWrapper();
    const args = randomArguments(goodArguments.destroy, random);
    const outcome = callMethod(TesselWrapper, 'destroy', args, { ...receivers, usual }, random);
    const hadEffect = !outcome.error && engine.operations().includes('DeInitialize');
    if (!outcome.isUsual) usual.destroy();
    return hadEffect && outcome.isUsual;
  },
});

// Brings frames of a stream to the proxies `readers`, and again when random calls have ended that.
class Sharing {
  constructor(wrapper, stream, readers) {
    Object.assign(this, { wrapper, stream, readers });
    engine.setStream(stream);
    this.share();
  }

  share() {
    for (const reader of this.readers) reader.removeVideo(this.stream);
    this.wrapper.exitWidgetMode(this.stream);
    this.wrapper.enterWidgetMode(this.stream);
    // The first is number 0, which the proxy's getLastFrame takes for one that the caller has.
    for (const number of [0, 1]) assert.ok(engine.pushFrame(this.stream, { ...SIZE, number }));
  }

  // A picture, which keeps the stream's lock.
  read(reader) {
    const frame = reader.getFrame(this.stream, NO_FRAME);
    if (isPicture(frame)) return frame;
    this.share();
    return reader.getFrame(this.stream, NO_FRAME);
  }
}

const PROXY_ARGUMENTS = {
  getFrame: () => [{ ...SHARED }, 0],
  getLastFrame: () => [{ ...SHARED }],
  releaseFrame: () => [{ ...SHARED }],
  removeVideo: () => [{ ...SHARED }],
};

// A stream whose frame can be read before each call, and by the proxy `other` too.
const readingTarget = (name, receivers, sharing, other) => ({
  name: `TesselWrapperProxy.${name}`,
  call(random) {
    for (const reader of [receivers.usual, other]) {
      assert.ok(isPicture(sharing.read(reader)));
      reader.releaseFrame(SHARED);
    }
    const args = randomArguments(PROXY_ARGUMENTS[name], random);
    const outcome = callMethod(TesselWrapperProxy, name, args, receivers, random);
    const hadEffect = !outcome.error && outcome.isUsual && isPicture(outcome.made);
    // A refused call does not keep the stream locked.
    if (outcome.error) assert.ok(isPicture(other.getFrame(SHARED, NO_FRAME)));
    for (const reader of sharing.readers) reader.releaseFrame(SHARED);
    return hadEffect;
  },
});

// A stream whose frame is being read at each call.
const endingTarget = (name, receivers, sharing) => ({
  name: `TesselWrapperProxy.${name}`,
  call(random) {
    const frame = sharing.read(receivers.usual);
    assert.ok(isPicture(frame));
    const args = randomArguments(PROXY_ARGUMENTS[name], random);
    callMethod(TesselWrapperProxy, name, args, receivers, random);
    const hadEffect = frame.yPlaneBuffer.length === 0;
    // Removing the stream does not change its lock.
    if (hadEffect && name === 'removeVideo') sharing.share();
    for (const reader of sharing.readers) reader.releaseFrame(SHARED);
    return hadEffect;
  },
});

const factoryTarget = {
  name: 'TesselWrapper._internal_setEmitterFactory',
  call(random) {
    let asked = false;
    const factory = () => {
      asked = true;
      return emitter;
    };
    const args = randomArguments(() => [factory], random);
    const { error } = attempt(this.name, () => TesselWrapper._internal_setEmitterFactory(...args));
    if (error) return false;
    const { made } = attempt(this.name, () => new TesselWrapper(PARAMS), { mayReach: () => true });
    made?.destroy();
    return asked;
  },
};

function constructRandomly(type, args, random) {
  if (random.chance(0.05)) return Reflect.apply(type, anything(random), args);
  const newTarget = random.chance(0.05) ? class extends type {} : type;
  return Reflect.construct(type, args, newTarget);
}

// As the engine receives text.
const wellFormed = (text) => Buffer.from(text).toString();

const newWrapperTarget = {
  name: 'new TesselWrapper',
  call(random) {
    let isFactoryAsked = false;
    const isFactoryRandom = random.chance(0.1);
    TesselWrapper._internal_setEmitterFactory(() => {
      isFactoryAsked = true;
      if (!isFactoryRandom) return emitter;
      if (random.chance(0.2)) throwOwn();
      return anything(random);
    });
    const trace = randomArguments(() => [{ ...PARAMS }], random).map(traced);
    const args = trace.map(({ value }) => value);
    // An emitter is asked for when the engine runs.
    const mayReach = () => isFactoryAsked;
    const construction = () => constructRandomly(TesselWrapper, args, random);
    const { error, made } = attempt(this.name, construction, { mayReach });
    if (error) return false;
    const [{ operation, args: told }] = engine.takeCalls();
    assert.equal(operation, 'CreateTSLMManager');
    const [read] = trace.map((each) => each.plain());
    assert.deepEqual(told.params, {
      szUserAgent: wellFormed(read.userAgent),
      szAppVersion: wellFormed(read.appVersion),
      szConfigPath: wellFormed(read.configPath),
      szLogPath: wellFormed(read.logPath),
      szLogPrefix: wellFormed(read.logPrefix),
    });
    made.destroy();
    return true;
  },
};

// The host loses its names with any proxy of it that is collected, and to wrappers of the same
// second, which have the same names: there is another one when it cannot be read.
const newProxyTarget = () => {
  let host;
  const dropHost = () => {
    host?.wrapper.destroy();
    host = undefined;
  };
  return {
    name: 'new TesselWrapperProxy',
    call(random) {
      host ??= new Sharing(makeWrapper(), SHARED_BY_HOST, []);
      host.share();
      const key = host.wrapper.getSharedDataInfo();
      const args = randomArguments(() => [key], random);
      const construction = () => constructRandomly(TesselWrapperProxy, args, random);
      const { made } = attempt(this.name, construction);
      const hadEffect = made !== undefined && isPicture(made.getFrame(SHARED_BY_HOST, NO_FRAME));
      made?.releaseFrame(SHARED_BY_HOST);
      if (made && !hadEffect) dropHost();
      return hadEffect;
    },
    end: dropHost,
  };
};

// ---- The trial

function shuffled(list, random) {
  const left = [...list];
  return list.map(() => left.splice(random.below(left.length), 1)[0]);
}

export async function run(count, { random }) {
  for (const stream of OTHERS) engine.setStream(stream);
  engine.setFrame(PULLED, { ...SIZE, frameId: 1, fresh: true });
  const wrapper = makeWrapper();
  const proxy = new TesselWrapperProxy(wrapper.getSharedDataInfo());
  const other = new TesselWrapperProxy(wrapper.getSharedDataInfo());
  const { wrappers, ...receivers } = makeReceivers(wrapper, proxy);
  const ofProxy = receivers.TesselWrapperProxy;
  const sharing = new Sharing(wrapper, SHARED, [proxy, other, ...ofProxy.right]);
  const newProxy = newProxyTarget();

  const names = Object.getOwnPropertyNames(TesselWrapper.prototype);
  const plainNames = names.filter((name) => !['constructor', 'on', 'destroy'].includes(name));
  const targets = [
    ...plainNames.map((name) => wrapperTarget(name, receivers.TesselWrapper)),
    onTarget(receivers.TesselWrapper),
    destroyTarget(receivers.TesselWrapper),
    ...['getFrame', 'getLastFrame'].map((name) => readingTarget(name, ofProxy, sharing, other)),
    ...['releaseFrame', 'removeVideo'].map((name) => endingTarget(name, ofProxy, sharing)),
    factoryTarget,
    newWrapperTarget,
    newProxy,
  ];
  const effects = new Map(targets.map(({ name }) => [name, 0]));
  for (let round = 0; round < count; ++round) {
    for (const target of shuffled(targets, random)) {
      if (target.call(random)) effects.set(target.name, effects.get(target.name) + 1);
    }
    engine.dropCallback();
    if (round % COLLECTED_EVERY === 0) await collect();
  }
  for (const [name, times] of effects) assert.ok(times > 0, `no call of ${name} had an effect`);
  newProxy.end();
  for (const each of wrappers) each.destroy();
  engine.reset();
  return {
    ...calls,
    'with an effect': [...effects.values()].reduce((sum, times) => sum + times, 0),
    'fewest of a method': Math.min(...effects.values()),
  };
}
