// The order of the steps of constructors and methods, as scripts of the application can see it.

import assert from 'node:assert/strict';
import { after, beforeEach, test } from 'node:test';

import {
  newStream,
  assertPicture,
  patternedPicture,
} from '../../support/scripted/frame_objects.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';
import { construct } from '../../support/scripted/wrapper_kit.mjs';

const { TesselWrapper, TesselWrapperProxy } = engine.loadAddon();
const wrapper = construct();

beforeEach(() => engine.reset());
after(() => wrapper.destroy());

// Runs `work` while `object` has the `properties`.
function withProperties(object, properties, work) {
  const originals = Object.keys(properties).map((name) => [
    name,
    Object.getOwnPropertyDescriptor(object, name),
  ]);
  Object.defineProperties(object, properties);
  try {
    return work();
  } finally {
    for (const [name, original] of originals) {
      delete object[name];
      if (original) Object.defineProperty(object, name, original);
    }
  }
}

// Runs `work` while every object inherits setters, which note what `look` sees, by name.
function settersCalledBy(work, names, look = () => []) {
  const called = [];
  const setters = names.map((name) => [
    name,
    { configurable: true, set: () => called.push([name, ...look()]) },
  ]);
  withProperties(Object.prototype, Object.fromEntries(setters), work);
  return called;
}

// Runs `work` while the class of byte arrays cannot be found through its prototype. Answers with
// how often it was looked for.
function looksForArrayClass(work) {
  let looks = 0;
  const get = () => {
    looks += 1;
    return Array;
  };
  withProperties(Uint8Array.prototype, { constructor: { configurable: true, get } }, work);
  return looks;
}

for (const Class of [TesselWrapper, TesselWrapperProxy]) {
  test(`${Class.name} counts its arguments before a script of the application can run`, () => {
    const looks = looksForArrayClass(() => {
      assert.throws(() => new Class(), {
        name: 'TypeError',
        message: 'Wrong number of arguments, expected 1',
      });
    });
    assert.equal(looks, 0);
  });
}

test('a patched prototype of Uint8Array changes nothing about the planes', () => {
  const stream = newStream();
  const answer = { width: 64, height: 64, frameId: 5 };
  engine.setFrame(stream, { ...answer, fresh: true });
  let made;
  let frame;
  const looks = looksForArrayClass(() => {
    made = construct();
    frame = made.getFrame(stream, 0);
  });
  assert.equal(looks, 0);
  assertPicture(frame, patternedPicture(stream, answer));
  made.destroy();
});

test('getConfigData asks the engine for a value after the previous one was set', () => {
  engine.setResults({ isVesperCapable: true, maxVOQualityIndex: 4 });
  const operations = () => engine.takeCalls().map(({ operation }) => operation);
  const called = settersCalledBy(
    () => wrapper.getConfigData(),
    ['isVesperCapable', 'maxVOQualityIndex'],
    operations,
  );
  assert.deepEqual(called, [
    ['isVesperCapable', 'GetConfigDataPtr', 'isVesperCapable'],
    ['maxVOQualityIndex', 'maxVOQualityIndex'],
  ]);
});

test('getMeetingStats attaches a group before it builds the next one', () => {
  engine.setResults({ meetingStats: { videoSend: [[1, {}]], videoReceive: [[2, {}]] } });
  const firsts = ['system_cpu', 'ssrc', 'pacer_delay_ms', 'target_delay_ms', 'transmit_level'];
  const groups = ['meetingStats', 'video_send_stats', 'content_send_stats'];
  groups.push('video_recv_stats', 'content_recv_stats', 'audio_stats');
  const called = settersCalledBy(() => wrapper.getMeetingStats(), [...firsts, ...groups]);
  assert.deepEqual(called.flat(), [
    ...['system_cpu', 'meetingStats'],
    ...['ssrc', 'pacer_delay_ms', 'video_send_stats'],
    ...['pacer_delay_ms', 'content_send_stats'],
    ...['ssrc', 'target_delay_ms', 'video_recv_stats'],
    ...['target_delay_ms', 'content_recv_stats'],
    ...['transmit_level', 'audio_stats'],
  ]);
});
