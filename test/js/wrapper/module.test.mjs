// The exports of tesselWrapper.node, and the ways of loading it.

import assert from 'node:assert/strict';
import { copyFileSync, mkdtempSync, realpathSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { afterEach, beforeEach, test } from 'node:test';

import { METHODS } from '../../support/scripted/method_table.mjs';
import {
  EventEmitter,
  PARAMS,
  collect,
  construct,
  engine,
} from '../../support/scripted/wrapper_kit.mjs';
import { addonFile as addonPath, build } from '../../support/build.mjs';
import { runInChild } from '../../support/child.mjs';

const FACTORY_SETTER = '_internal_setEmitterFactory';

const addon = engine.loadAddon();
const { TesselWrapper, TesselWrapperProxy } = addon;

let made = [];

function make(options) {
  const wrapper = construct(options);
  made.push(wrapper);
  return wrapper;
}

beforeEach(() => engine.reset());

afterEach(() => {
  for (const wrapper of made) wrapper.destroy();
  made = [];
});

// The addon as `exports` finds it after one more run of its register function.
function loadInto(exports) {
  const module = { exports };
  process.dlopen(module, addonPath);
  return module.exports;
}

// ---- The exports

test('the exports are the two classes and nothing else', () => {
  assert.deepEqual(Reflect.ownKeys(addon), ['TesselWrapper', 'TesselWrapperProxy']);
  assert.equal(typeof TesselWrapper, 'function');
  assert.equal(typeof TesselWrapperProxy, 'function');
  assert.equal(TesselWrapper.name, 'TesselWrapper');
  assert.equal(TesselWrapperProxy.name, 'TesselWrapperProxy');
});

test('the classes are set on the given exports object, TesselWrapper first', () => {
  const keys = [];
  const exports = new Proxy(
    {},
    {
      set(target, key, value) {
        keys.push(key);
        return Reflect.set(target, key, value);
      },
    },
  );
  assert.equal(loadInto(exports), exports);
  assert.deepEqual(keys, ['TesselWrapper', 'TesselWrapperProxy']);
  assert.equal(exports.TesselWrapper.name, 'TesselWrapper');
  assert.equal(exports.TesselWrapperProxy.name, 'TesselWrapperProxy');
});

for (const name of ['TesselWrapper', 'TesselWrapperProxy']) {
  test(`loading throws the error of an exports object that refuses ${name}`, () => {
    const refusal = new Error('refused');
    const exports = new Proxy(
      {},
      {
        set(target, key, value) {
          if (key === name) throw refusal;
          return Reflect.set(target, key, value);
        },
      },
    );
    assert.throws(
      () => loadInto(exports),
      (error) => error === refusal,
    );
  });
}

test('loading registers the module by its static record, which is sufficient for a host', () => {
  const { code, signal, stderr, said } = runInChild(
    ({ say }) => {
      const exports = require(process.argv[1]);
      say(Object.keys(exports).join(', '));
      say(typeof exports.TesselWrapper._internal_setEmitterFactory);
    },
    {
      modules: ['./support/child.mjs'],
      args: [path.join(build, 'test/addons/recorded/tesselWrapper.node')],
    },
  );
  assert.deepEqual([code, signal], [0, null], stderr);
  assert.equal(stderr, 'registered addon, version 1, flags 0, file tesselWrapper.node\n');
  assert.deepEqual(said, ['TesselWrapper, TesselWrapperProxy', 'function']);
});

// ---- The class

test('the prototype has exactly the instance methods, in order', () => {
  const names = Reflect.ownKeys(TesselWrapper.prototype).filter((key) => key !== 'constructor');
  assert.deepEqual(
    names,
    METHODS.map(({ name }) => name),
  );
  assert.equal(names.length, 34);
});

test('the methods are neither writable nor enumerable nor configurable', () => {
  for (const { name } of METHODS) {
    const { value, ...attributes } = Object.getOwnPropertyDescriptor(TesselWrapper.prototype, name);
    assert.equal(typeof value, 'function', name);
    assert.equal(value.name, name);
    assert.deepEqual(attributes, { writable: false, enumerable: false, configurable: false }, name);
  }
});

test('the class has one static member, which sets the emitter factory', () => {
  const ofEveryFunction = Reflect.ownKeys(new Function());
  assert.deepEqual(
    Reflect.ownKeys(TesselWrapper).filter((key) => !ofEveryFunction.includes(key)),
    [FACTORY_SETTER],
  );
  const { value, ...attributes } = Object.getOwnPropertyDescriptor(TesselWrapper, FACTORY_SETTER);
  assert.equal(typeof value, 'function');
  assert.deepEqual(attributes, { writable: false, enumerable: false, configurable: false });
  assert.equal(FACTORY_SETTER in make(), false);
});

test('an instance has no properties of its own', () => {
  const wrapper = make();
  assert.deepEqual(Reflect.ownKeys(wrapper), []);
  assert.equal(Object.getPrototypeOf(wrapper), TesselWrapper.prototype);
});

test('the class can be extended', () => {
  class Extended extends TesselWrapper {
    muteLocalAudio(mute) {
      super.muteLocalAudio(!mute);
    }
  }
  engine.clearCalls();
  const extended = new Extended(PARAMS);
  extended.muteLocalAudio(true);
  extended.destroy();
  assert.equal(extended instanceof TesselWrapper, true);
  const { args } = engine.calls().find(({ operation }) => operation === 'MuteLocalAudio');
  assert.deepEqual(args, { mute: false });
});

test('a class called without new throws and constructs nothing', () => {
  const wrapper = make();
  engine.clearCalls();
  for (const type of [TesselWrapper, TesselWrapperProxy]) {
    for (const receiver of [undefined, {}, wrapper]) {
      assert.throws(() => type.call(receiver, PARAMS), {
        name: 'TypeError',
        message: "Class constructors cannot be invoked without 'new'",
      });
    }
  }
  assert.deepEqual(engine.calls(), []);
});

test('a method throws on a receiver of another class, and does not call the engine', () => {
  const wrapper = make();
  const ofAnotherLoad = new (loadInto({}).TesselWrapper)(PARAMS);
  made.push(ofAnotherLoad);
  engine.clearCalls();
  const receivers = [
    ...[undefined, null, 1, 'text', {}, () => {}, TesselWrapper, TesselWrapper.prototype],
    ...[Object.create(wrapper), new Proxy(wrapper, {}), ofAnotherLoad],
    new TesselWrapperProxy({ shm_name: '/none', sem_name: '/none' }),
  ];
  for (const { name, args } of METHODS) {
    for (const receiver of receivers) {
      assert.throws(
        () => TesselWrapper.prototype[name].apply(receiver, args),
        { name: 'TypeError', message: 'Illegal invocation' },
        name,
      );
    }
  }
  assert.deepEqual(engine.calls(), []);
});

// ---- Kinds

for (const { name, returnsValue, args } of METHODS) {
  test(`${name} returns ${returnsValue ? 'a value' : 'nothing'}`, () => {
    engine.setFrame({ type: 'remote', streamIndex: 3 }, { width: 4, height: 2, frameId: 1 });
    const wrapper = make({ emitter: { on: () => 'value' } });
    const result = wrapper[name](...args);
    if (returnsValue) assert.equal(typeof result, 'object');
    else assert.equal(result, undefined);
  });
}

test('setting the emitter factory returns nothing', () => {
  assert.equal(
    TesselWrapper[FACTORY_SETTER](() => new EventEmitter()),
    undefined,
  );
});

// ---- Ways of loading

const KIT = './support/scripted/wrapper_kit.mjs';

// The output of a child that ended by itself.
function saidIn(script, options) {
  const { code, signal, stderr, said } = runInChild(script, options);
  assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });
  return said;
}

// A copy of the addon and of the engine that it was built with, in a directory of its own.
function copyOfAddon(t) {
  const directory = mkdtempSync(path.join(realpathSync(tmpdir()), 'tessel_copy_'));
  t.after(() => rmSync(directory, { recursive: true }));
  for (const name of ['tesselWrapper.node', 'libtesselclient.so']) {
    copyFileSync(path.join(build, name), path.join(directory, name));
  }
  return { directory, addonPath: path.join(directory, 'tesselWrapper.node') };
}

test('loading again after clearing the cache gives new classes and the same emitter factory', () => {
  const said = saidIn(
    async ({ EventEmitter, PARAMS, engine, nextTurn, say }) => {
      const { cache } = require;
      const emitter = new EventEmitter();
      emitter.on('micLevel', ({ level }) => say(`level ${level}`));
      const first = engine.loadAddon();
      first.TesselWrapper._internal_setEmitterFactory(() => emitter);
      const ofFirst = new first.TesselWrapper(PARAMS);

      for (const key of Object.keys(cache)) delete cache[key];
      const second = engine.loadAddon();
      say(first.TesselWrapper === second.TesselWrapper ? 'same class' : 'another class');
      const ofSecond = new second.TesselWrapper(PARAMS);

      engine.selectEngine(1);
      engine.fire('NotifyMicLevel', 1);
      engine.selectEngine(2);
      engine.fire('NotifyMicLevel', 2);
      await nextTurn();
      ofFirst.destroy();
      ofSecond.destroy();
    },
    { modules: [KIT] },
  );
  assert.deepEqual(said, ['another class', 'level 1', 'level 2']);
});

test('a copy of the addon works beside the original', (t) => {
  const said = saidIn(
    async ({ EventEmitter, PARAMS, engine, nextTurn, say }) => {
      const copy = require(process.argv[1]);
      for (const { TesselWrapper } of [engine.loadAddon(), copy]) {
        const emitter = new EventEmitter();
        TesselWrapper._internal_setEmitterFactory(() => emitter);
        const wrapper = new TesselWrapper(PARAMS);
        wrapper.on('micLevel', ({ level }) => say(`level ${level}`));
        engine.fire('NotifyMicLevel', 3);
        await nextTurn();
        wrapper.destroy();
      }
    },
    { modules: [KIT], args: [copyOfAddon(t).addonPath] },
  );
  assert.deepEqual(said, ['level 3', 'level 3']);
});

// Reports which engine library the process has loaded.
async function sayEngineInUse({ say }) {
  const { readFileSync } = require('node:fs');
  require(process.argv[1]);
  const maps = readFileSync('/proc/self/maps', 'utf8').match(/\/.*\/libtesselclient\.so/g);
  for (const library of new Set(maps)) say(library);
}

test('the addon loads the engine from its own directory, wherever it was copied', (t) => {
  const copy = copyOfAddon(t);
  for (const { directory, addonPath: from } of [{ directory: build, addonPath }, copy]) {
    const said = saidIn(sayEngineInUse, { modules: ['./support/child.mjs'], args: [from] });
    assert.deepEqual(said, [path.join(directory, 'libtesselclient.so')]);
  }
});

test("LD_LIBRARY_PATH replaces the engine in the addon's directory", () => {
  const environment = { LD_LIBRARY_PATH: engine.engineDirectory };
  const inUse = saidIn(sayEngineInUse, {
    modules: ['./support/child.mjs'],
    args: [addonPath],
    environment,
  });
  assert.deepEqual(inUse, [path.join(engine.engineDirectory, 'libtesselclient.so')]);

  const said = saidIn(
    async ({ say }) => {
      const { TesselWrapper } = require(process.argv[1]);
      TesselWrapper._internal_setEmitterFactory(() => ({}));
      new TesselWrapper({
        appVersion: '',
        configPath: '',
        logPath: '',
        logPrefix: '',
        userAgent: '',
      }).destroy();
      const { engine } = require(process.argv[2]);
      for (const { operation } of engine.calls()) say(operation);
    },
    {
      modules: ['./support/child.mjs'],
      args: [addonPath, path.join(engine.engineDirectory, 'scripted_engine.node')],
      environment,
    },
  );
  assert.deepEqual(said, [
    ...['CreateTSLMManager', 'RegisterNotifyCallback', 'Initialize'],
    ...['DeInitialize', 'DestroyTSLMManager'],
  ]);
});

// ---- Worker threads

const WORKER = './support/processes/loading_worker.mjs';

test('a worker thread gets the classes, but can neither construct them nor set a factory', () => {
  const said = saidIn(
    async ({ engine, say }) => {
      const { once } = require('node:events');
      const { Worker } = require('node:worker_threads');
      const worker = new Worker(process.argv[1], { workerData: process.argv[2] });
      // Both may come in one turn.
      const exit = once(worker, 'exit');
      const [found] = await once(worker, 'message');
      say(JSON.stringify(found));
      const [code] = await exit;
      say(`worker ended with ${code}`);
      say(`engine calls: ${engine.operations()}`);
    },
    { modules: [KIT], args: [WORKER, addonPath] },
  );
  const [found, ...rest] = said;
  assert.deepEqual(JSON.parse(found), {
    keys: ['TesselWrapper', 'TesselWrapperProxy'],
    methods: 1 + METHODS.length,
    setFactory: 'Error: TesselWrapper is only possible on the main thread',
    setWrongFactory: 'TypeError: Wrong argument type for argument 1, expected Function',
    construct: 'Error: TesselWrapper is only possible on the main thread',
    constructProxy: 'Error: TesselWrapperProxy is only possible on the main thread',
  });
  assert.deepEqual(rest, ['worker ended with 0', 'engine calls: ']);
});

test('the main thread can load the addon after the worker that loaded it first has ended', () => {
  const said = saidIn(
    async ({ construct, nextTurn, engine, say }) => {
      const { once } = require('node:events');
      const { Worker } = require('node:worker_threads');
      for (let i = 0; i < 2; ++i) {
        await once(new Worker(process.argv[1], { workerData: process.argv[2] }), 'exit');
      }
      const wrapper = construct();
      wrapper.on('micLevel', ({ level }) => say(`level ${level}`));
      engine.fire('NotifyMicLevel', 4);
      await nextTurn();
      wrapper.destroy();
    },
    { modules: [KIT], args: [WORKER, addonPath] },
  );
  assert.deepEqual(said, ['level 4']);
});

test('workers that load the addon and end do not affect the wrappers of the main thread', () => {
  const said = saidIn(
    async ({ PARAMS, construct, nextTurn, engine, say }) => {
      const { once } = require('node:events');
      const { Worker } = require('node:worker_threads');
      const { TesselWrapper } = engine.loadAddon();
      const wrapper = construct();
      let arrived = 0;
      wrapper.on('micLevel', () => ++arrived);
      const posting = engine.fireManyAsync({
        threads: 2,
        count: 20_000,
        notification: 'NotifyMicLevel',
        args: [5],
      });
      const start = () => new Worker(process.argv[1], { workerData: process.argv[2] });
      const ended = start();
      const terminated = start();
      await Promise.all([
        once(ended, 'exit'),
        once(terminated, 'message').then(() => terminated.terminate()),
      ]);
      posting.join();
      await nextTurn();
      say(`${arrived} levels`);
      new TesselWrapper(PARAMS).destroy();
      wrapper.destroy();
    },
    { modules: [KIT], args: [WORKER, addonPath] },
  );
  assert.deepEqual(said, ['40000 levels']);
});

test('a process in which only a worker loaded the addon keeps it mapped and ends by itself', () => {
  const said = saidIn(
    async ({ say }) => {
      const { once } = require('node:events');
      const { Worker } = require('node:worker_threads');
      const [code] = await once(
        new Worker(process.argv[1], { workerData: process.argv[2] }),
        'exit',
      );
      say(code);
      const maps = require('node:fs').readFileSync('/proc/self/maps', 'utf8');
      say(maps.includes(process.argv[2]) ? 'mapped' : 'unmapped');
    },
    { modules: ['./support/child.mjs'], args: [WORKER, addonPath] },
  );
  assert.deepEqual(said, ['0', 'mapped']);
});

// ---- Class-wide references

test('a replaced factory is released, and the present one is kept', async () => {
  const setFresh = () => {
    const factory = () => new EventEmitter();
    TesselWrapper[FACTORY_SETTER](factory);
    return new WeakRef(factory);
  };
  const replaced = setFresh();
  await collect();
  assert.notEqual(replaced.deref(), undefined);
  const set = setFresh();
  await collect();
  assert.equal(replaced.deref(), undefined);
  assert.notEqual(set.deref(), undefined);
});
