// A meeting on the embedded engine, seen from JavaScript.

import assert from 'node:assert/strict';
import { readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { readCard } from '../../support/card_code.mjs';
import { Meeting } from '../../support/embedded_meeting.mjs';
import { remote } from '../../support/streams.mjs';

test('joining reports the connection, then each participant as a stream of its own', async (t) => {
  const meeting = new Meeting(t);
  assert.equal(await meeting.join('tessel:room?participants=3'), true);
  for (const index of [0, 1, 2]) {
    const { csrc } = await meeting.seen('streamAdded', ({ streamIndex }) => streamIndex === index);
    assert.ok(Number.isInteger(csrc) && csrc > 0);
  }
  const names = meeting.events.map(([name]) => name);
  assert.ok(names.indexOf('callConnectionStatus') < names.indexOf('streamAdded'));
  const sources = meeting.payloads('streamAdded').map(({ csrc }) => csrc);
  assert.equal(new Set(sources).size, sources.length, 'every stream has its own source');
});

test('leaving removes every stream and reports the end with a reason and a code', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join('tessel:room?participants=2');
  await meeting.seen('streamAdded', ({ streamIndex }) => streamIndex === 1);
  const { callId, reason, code } = await meeting.leave();
  assert.ok(callId > 0);
  assert.notEqual(reason, '');
  assert.equal(code, 0);
  assert.deepEqual(
    meeting.payloads('streamRemoved').map(({ csrc }) => csrc),
    meeting.payloads('streamAdded').map(({ csrc }) => csrc),
  );
  assert.deepEqual(meeting.payloads('callConnectionStatus'), [
    { connected: true },
    { connected: false },
  ]);
});

test('a uri that cannot be served is refused with a reason and a code', async (t) => {
  for (const [uri, reason] of [
    ['sip:somebody@example.org', /scheme/],
    ['tessel:room?nonsense=1', /nonsense/],
    ['tessel:room?participants=51', /participants/],
    ['tessel:room?video=/no/such/clip.y4m', /clip/],
    ['tessel:room?refuse=486', /./],
    ['', /./],
  ]) {
    const meeting = new Meeting(t);
    assert.equal(await meeting.join(uri), false, uri);
    const answer = await meeting.seen('callDisconnect');
    assert.match(answer.reason, reason);
    assert.notEqual(answer.code, 0, uri);
    assert.deepEqual(meeting.payloads('streamAdded'), []);
  }
});

test('the same seed gives the same meeting', async (t) => {
  const sources = [];
  for (const seed of [7, 7, 8]) {
    const meeting = new Meeting(t);
    await meeting.join(`tessel:room?participants=4&seed=${seed}`);
    await meeting.seen('streamAdded', ({ streamIndex }) => streamIndex === 3);
    sources.push(meeting.payloads('streamAdded').map(({ csrc }) => csrc));
  }
  assert.deepEqual(sources[0], sources[1]);
  assert.notDeepEqual(sources[0], sources[2]);
});

test('every frame carries the number of its stream and its picture, which increases', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join('tessel:room?participants=2&size=641x361&fps=60');
  for (const stream of [remote(0), remote(1)]) {
    let frameId = 0;
    for (let count = 0; count < 5; count++) {
      const frame = await meeting.nextFrame(stream, frameId);
      assert.ok(frame.frameId > frameId);
      frameId = frame.frameId;
      assert.deepEqual([frame.width, frame.height], [641, 361]);
      assert.deepEqual([frame.uPlaneBufferWidth, frame.uPlaneBufferHeight], [321, 181]);
      assert.equal(frame.vPlaneBufferSize, 321 * 181);
      const { type, streamIndex, number } = readCard(frame);
      assert.deepEqual({ type, streamIndex }, stream);
      assert.equal(number, frameId);
    }
  }
});

test('a caller that has the newest frame gets no update', async (t) => {
  const meeting = new Meeting(t);
  // One frame a second: the request follows directly after the frame.
  await meeting.join('tessel:room?participants=1&fps=1');
  const { frameId, csrc } = await meeting.nextFrame(remote(0));
  const answer = meeting.wrapper.getFrame(remote(0), frameId);
  assert.deepEqual(answer, { noUpdate: true, clearFrame: false, frameId, csrc });
});

test('a frame does not change while it may be read', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join('tessel:room?participants=2&fps=60');
  const held = await meeting.nextFrame(remote(0));
  const before = Buffer.from(held.yPlaneBuffer);
  let frameId = 0;
  for (let count = 0; count < 30; count++) {
    ({ frameId } = await meeting.nextFrame(remote(1), frameId));
  }
  assert.ok(before.equals(held.yPlaneBuffer));
});

test('the level of the own microphone rises while the local participant speaks, and not otherwise', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join('tessel:room?participants=1&speak=0@0-1,me@1-5');
  await meeting.seen('micLevel', ({ level }) => level > 0);
  assert.equal(meeting.payloads('micLevel')[0].level, 0);
});

test('the log file is at the place that logPath and logPrefix give', async (t) => {
  const meeting = new Meeting(t, { logPrefix: 'a-prefix' });
  await meeting.join('tessel:room?participants=1', {
    turnServers: [
      {
        protocol: 'udp',
        fqdn: 'turn.example',
        address: '192.0.2.1',
        port: 3478,
        username: 'someone',
        password: 'very secret',
        priority: 1,
        bandwidth: 1,
      },
    ],
  });
  const [file, ...others] = readdirSync(meeting.logPath);
  assert.deepEqual(others, []);
  assert.match(file, /^a-prefix/);
  const log = readFileSync(path.join(meeting.logPath, file), 'utf8');
  assert.match(log, /tessel:room/);
  assert.ok(!log.includes('very secret'));
});
