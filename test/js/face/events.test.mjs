// Events and answers of a meeting on the scripted engine, which the test controls.

import assert from 'node:assert/strict';
import { EventEmitter } from 'node:events';
import { setImmediate } from 'node:timers/promises';
import { after, afterEach, before, beforeEach, describe, test } from 'node:test';
import { inspect } from 'node:util';

import { runInChild } from '../../support/child.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';
import { face, mockClocks, openMeeting } from '../../support/face.mjs';
import { remote } from '../../support/streams.mjs';

const { CallError, Meeting, ShareError, TimeoutError } = face;

describe('the events of a meeting', () => {
  // One for all tests: a second one would have to wait for the next second.
  let meeting;

  before(async () => {
    meeting = await openMeeting();
  });

  after(() => meeting.close());

  beforeEach(() => engine.clearCalls());

  // Whatever a test leaves behind.
  afterEach(() => {
    engine.fire('NotifyScreenShareStatus', 6);
    engine.fire('NotifyScreenShareStatus', 7);
    engine.fire('NotifyCallDisconnect', 1, 'over', 0);
    return meeting.waitFor('callDisconnect');
  });

  const added = (streamIndex) => engine.fire('NotifyStreamAdded', remote(streamIndex), 7);

  async function join() {
    const joining = meeting.join({ uri: 'scripted' });
    engine.fire('NotifyCallConnectionStatus', true);
    await joining;
  }

  // ---- Listeners

  test('on, once and off subscribe, and return the meeting', async () => {
    const heard = [];
    const listener = ({ level }) => heard.push(['on', level]);
    assert.equal(meeting.on('micLevel', listener), meeting);
    assert.equal(
      meeting.once('micLevel', ({ level }) => heard.push(['once', level])),
      meeting,
    );
    const last = meeting.waitFor('micLevel', { where: ({ level }) => level === 2 });
    for (const level of [1, 2]) engine.fire('NotifyMicLevel', level);
    await last;
    assert.equal(meeting.off('micLevel', listener), meeting);
    engine.fire('NotifyMicLevel', 3);
    await meeting.waitFor('micLevel');
    assert.deepEqual(heard, [
      ['on', 1],
      ['once', 1],
      ['on', 2],
    ]);
  });

  // ---- Participants

  const ADA = {
    ...{ stream: remote(3), csrc: 7, guid: 'a', name: 'Ada' },
    ...{ audioMuted: false, videoMuted: true, speaking: false, presenting: true },
  };
  const tell = (body) => engine.fire('NotifyEvent', 'participants', body);

  test('the participants are those of the latest engine event, and each one is emitted', async () => {
    const told = meeting.events(['participants', 'eventNotify']);
    const body = JSON.stringify({ participants: [ADA] });
    tell(body);
    assert.deepEqual((await told.next()).value, ['participants', [ADA]]);
    assert.deepEqual(meeting.participants, [ADA]);
    assert.throws(() => meeting.participants.push(ADA), TypeError);
    assert.throws(() => (meeting.participants[0].name = 'Eve'), TypeError);
    assert.throws(() => (meeting.participants[0].stream.streamIndex = 7), TypeError);
    assert.deepEqual((await told.next()).value, [
      'eventNotify',
      { eventName: 'participants', eventBody: body },
    ]);
    const nobody = meeting.waitFor('participants', { where: (all) => all.length === 0 });
    tell('{"participants":[]}');
    assert.deepEqual(await nobody, []);
    assert.deepEqual(meeting.participants, []);
    await told.return();
  });

  test('an invalid list of participants is ignored', async () => {
    const told = [];
    const listener = (participants) => told.push(participants);
    meeting.on('participants', listener);
    tell(JSON.stringify({ participants: [ADA] }));
    for (const body of ['', 'nobody', 'null', '[]', '{}', '{"participants":{}}']) tell(body);
    engine.fire('NotifyEvent', 'others', '{"participants":[]}');
    await meeting.waitFor('eventNotify', { where: ({ eventName }) => eventName === 'others' });
    meeting.off('participants', listener);
    assert.deepEqual(told, [[ADA]]);
    assert.deepEqual(meeting.participants, [ADA]);
  });

  test('unknown event names are rejected', async () => {
    const isRefusal = (error) => {
      assert.ok(error instanceof TypeError);
      assert.match(
        error.message,
        /^Unknown event streamadded, expected one of streamAdded, .*VOQI, participants$/,
      );
      return true;
    };
    for (const method of ['on', 'once', 'off']) {
      assert.throws(() => meeting[method]('streamadded', () => {}), isRefusal);
    }
    assert.throws(() => meeting.events(['micLevel', 'streamadded']), isRefusal);
    await assert.rejects(meeting.waitFor('streamadded'), isRefusal);
    await assert.rejects(meeting.waitFor(Symbol('mine')), {
      message: /^Unknown event Symbol\(mine\)/,
    });
    for (const names of ['streamAdded', undefined]) {
      assert.throws(() => meeting.events(names), {
        name: 'TypeError',
        message: "Wrong type for the names of events, expected an array: ['streamAdded']",
      });
    }
  });

  test('an invalid timeout is rejected, and the engine is not called', async () => {
    for (const timeout of ['100', Number.NaN, -1, 2 ** 31, Infinity, null]) {
      const refusal = {
        name: 'TypeError',
        message: `Wrong timeout ${inspect(timeout)}, expected milliseconds from 0 to 2147483647`,
      };
      await assert.rejects(meeting.waitFor('micLevel', { timeout }), refusal);
      await assert.rejects(meeting.join({ uri: 'scripted' }, { timeout }), refusal);
      await assert.rejects(meeting.requestContentShareToken({ timeout }), refusal);
    }
    assert.deepEqual(engine.operations(), []);
  });

  test('a signal that is none is refused, and the engine is not asked', async () => {
    const emitter = new EventTarget();
    Object.assign(emitter, { aborted: false, throwIfAborted() {} });
    for (const signal of ['now', null, new AbortController(), { aborted: false }, emitter]) {
      const refusal = {
        name: 'TypeError',
        message: `Wrong signal ${inspect(signal, { depth: 0 })}, expected an AbortSignal`,
      };
      await assert.rejects(meeting.waitFor('micLevel', { signal }), refusal);
      await assert.rejects(meeting.join({ uri: 'scripted' }, { signal }), refusal);
      await assert.rejects(Meeting.open({ logPath: '/dev/null' }, { signal }), refusal);
      await assert.rejects(meeting.enterWidgetMode(remote(0), { signal }), refusal);
      assert.throws(() => meeting.events(['micLevel'], { signal }), refusal);
      assert.throws(() => meeting.frames({ type: 'remote', streamIndex: 0 }, { signal }), refusal);
      for (const ask of Object.values(ENDINGS)) await assert.rejects(ask({ signal }), refusal);
    }
    assert.deepEqual(engine.operations(), []);
  });

  test('events with a signal that is none has not begun to listen', (t) => {
    const { mock } = t.mock.method(EventEmitter.prototype, 'prependListener');
    meeting.events(['micLevel']).return();
    assert.equal(mock.callCount(), 1);
    assert.throws(() => meeting.events(['micLevel'], { signal: { aborted: false } }));
    assert.equal(mock.callCount(), 1);
  });

  // What settles at once when there is nothing to end.
  const ENDINGS = {
    leave: (limits) => meeting.leave(limits),
    stopPresentation: (limits) => meeting.stopPresentation(limits),
    releaseContentShareToken: (limits) => meeting.releaseContentShareToken(limits),
  };

  for (const [name, ask] of Object.entries(ENDINGS)) {
    test(`${name} with a signal that was aborted before rejects, and the engine is not asked`, async () => {
      const given = (signal) => assert.rejects(ask({ signal }), { name: 'AbortError' });
      await given(AbortSignal.abort());
      assert.deepEqual(engine.operations(), []);
      await join();
      // So that there may be something to end.
      for (const begun of [
        meeting.requestContentShareToken(),
        meeting.startPresentation({ type: 'screen' }),
      ]) {
        begun.catch(() => {});
      }
      const before = engine.operations();
      await given(AbortSignal.abort());
      assert.deepEqual(engine.operations(), before);
    });
  }

  test('options that are none, or misspelt, are refused, and the engine is not asked', async () => {
    const stream = remote(0);
    const limits = ['signal', 'timeout'];
    const operations = {
      open: [(options) => Meeting.open({ logPath: '/dev/null' }, options), ['signal']],
      waitFor: [(options) => meeting.waitFor('micLevel', options), ['where', ...limits]],
      events: [async (options) => meeting.events(['micLevel'], options), ['signal']],
      join: [(options) => meeting.join({ uri: 'scripted' }, options), limits],
      leave: [(options) => meeting.leave(options), limits],
      requestContentShareToken: [(options) => meeting.requestContentShareToken(options), limits],
      releaseContentShareToken: [(options) => meeting.releaseContentShareToken(options), limits],
      startPresentation: [
        (options) => meeting.startPresentation({ type: 'screen' }, options),
        limits,
      ],
      stopPresentation: [(options) => meeting.stopPresentation(options), limits],
      frames: [async (options) => meeting.frames(stream, options), ['rate', 'signal']],
      enterWidgetMode: [(options) => meeting.enterWidgetMode(stream, options), ['signal']],
    };
    for (const [name, [ask, known]] of Object.entries(operations)) {
      const controller = new AbortController();
      for (const none of [5, null, 'fast', [], controller, controller.signal]) {
        await assert.rejects(ask(none), {
          name: 'TypeError',
          message:
            `Wrong options ${inspect(none, { depth: 0 })} of ${name}, ` +
            `expected an object: { ${known.join(', ')} }`,
        });
      }
      await assert.rejects(ask({ timeOut: 5 }), {
        name: 'TypeError',
        message: `Unknown option timeOut of ${name}, expected one of ${known.join(', ')}`,
      });
    }
    await assert.rejects(meeting.waitFor('micLevel', { where: 5 }), {
      name: 'TypeError',
      message: 'Wrong where 5, expected a function',
    });
    await assert.rejects(meeting.startPresentation({ type: 'screen', screenID: 1 }), {
      name: 'TypeError',
      message: 'Unknown property screenID on object ContentShareParams',
    });
    assert.deepEqual(engine.operations(), []);
  });

  test('undefined options have their defaults', async () => {
    const nothing = { signal: undefined, timeout: undefined, timeOut: undefined };
    const level = meeting.waitFor('micLevel', { ...nothing, where: undefined });
    engine.fire('NotifyMicLevel', 1);
    assert.deepEqual(await level, { level: 1 });
    assert.equal(await meeting.leave(nothing), undefined);
  });

  test('invalid streams are rejected by the method that gets them', async () => {
    for (const [stream, message] of [
      ['remote', "Wrong stream 'remote', expected an object: { type: 'remote', streamIndex: 0 }"],
      [undefined, "Wrong stream undefined, expected an object: { type: 'remote', streamIndex: 0 }"],
      [
        { type: 'Remote', streamIndex: 0 },
        "Wrong type 'Remote' of a stream, expected one of local, remote, content",
      ],
      [
        { type: 'remote' },
        'Wrong streamIndex undefined of a stream, expected a whole number of 32 bits',
      ],
      [
        { type: 'remote', streamIndex: 1.5 },
        'Wrong streamIndex 1.5 of a stream, expected a whole number of 32 bits',
      ],
    ]) {
      const refusal = { name: 'TypeError', message };
      assert.throws(() => meeting.frames(stream), refusal);
      assert.throws(() => meeting.exitWidgetMode(stream), refusal);
      await assert.rejects(meeting.enterWidgetMode(stream), refusal);
    }
    assert.deepEqual(engine.operations(), []);
  });

  test('leave and share reject with a TimeoutError that names the operation', async () => {
    await join();
    await assert.rejects(meeting.requestContentShareToken({ timeout: 0 }), {
      name: 'TimeoutError',
      message: 'requestContentShareToken took longer than 0 ms',
    });
    await assert.rejects(meeting.leave({ timeout: 0 }), {
      name: 'TimeoutError',
      message: 'Leaving took longer than 0 ms',
    });
  });

  // ---- waitFor

  test('waitFor resolves with the next payload that its condition accepts', async () => {
    const any = meeting.waitFor('streamAdded');
    const third = meeting.waitFor('streamAdded', { where: ({ streamIndex }) => streamIndex === 3 });
    for (const streamIndex of [1, 2, 3]) added(streamIndex);
    assert.deepEqual(await any, { type: 'remote', streamIndex: 1, csrc: 7 });
    assert.equal((await third).streamIndex, 3);
  });

  test('an event between two awaits is not lost when the wait began before the first await', async () => {
    const status = meeting.waitFor('callConnectionStatus');
    const stream = meeting.waitFor('streamAdded');
    added(1);
    engine.fire('NotifyCallConnectionStatus', true);
    assert.deepEqual(await status, { connected: true });
    assert.equal((await stream).streamIndex, 1);
  });

  test('events that arrive together can be awaited one after the other', async () => {
    engine.fire('NotifyMicLevel', 1);
    engine.fire('NotifyDeviceChange', 'camera', 1);
    assert.deepEqual(await meeting.waitFor('micLevel'), { level: 1 });
    assert.deepEqual(await meeting.waitFor('deviceChange'), { id: 'camera', type: 'video' });
  });

  test('waitFor rejects when its timeout expires or its signal is aborted, even before the call', async () => {
    await assert.rejects(meeting.waitFor('micLevel', { timeout: 0 }), (error) => {
      assert.ok(error instanceof TimeoutError);
      assert.deepEqual([error.name, error.message], ['TimeoutError', 'No micLevel within 0 ms']);
      return true;
    });
    const controller = new AbortController();
    const waiting = meeting.waitFor('micLevel', { signal: controller.signal });
    controller.abort();
    await assert.rejects(waiting, { name: 'AbortError' });
    await assert.rejects(
      meeting.waitFor('micLevel', { signal: AbortSignal.abort('reason') }),
      (reason) => reason === 'reason',
    );
  });

  test('a listener that throws does not keep a wait from its event', () => {
    const child = runInChild(
      async (scripted, { openMeeting: open }, { say }) => {
        const other = await open();
        process.once('uncaughtException', ({ message }) => say(message));
        other.on('micLevel', () => {
          throw new Error('mine');
        });
        const waiting = other.waitFor('micLevel');
        scripted.fire('NotifyMicLevel', 1);
        say(JSON.stringify(await waiting));
        other.close();
      },
      {
        modules: [
          './support/scripted/scripted_engine.mjs',
          './support/face.mjs',
          './support/child.mjs',
        ],
      },
    );
    assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
    assert.deepEqual(child.said, ['mine', '{"level":1}']);
  });

  test('an exception from the condition of waitFor rejects the wait', async () => {
    const waiting = meeting.waitFor('micLevel', {
      where: () => {
        throw new Error('mine');
      },
    });
    engine.fire('NotifyMicLevel', 1);
    await assert.rejects(waiting, { message: 'mine' });
  });

  test('any number of waits causes no warning', async () => {
    let warning;
    process.once('warning', (given) => (warning = given));
    const { signal } = new AbortController();
    const waits = Array.from({ length: 20 }, () => meeting.waitFor('micLevel', { signal }));
    engine.fire('NotifyMicLevel', 1);
    await Promise.all(waits);
    assert.equal(warning, undefined);
  });

  // ---- events

  test('events() keeps the order across several names, and queues events until they are requested', async () => {
    const events = meeting.events(['micLevel', 'streamAdded']);
    engine.fire('NotifyMicLevel', 1);
    added(1);
    engine.fire('NotifyDeviceChange', 'camera', 1);
    engine.fire('NotifyMicLevel', 2);
    await meeting.waitFor('micLevel', { where: ({ level }) => level === 2 });
    const seen = [];
    for await (const event of events) {
      seen.push(event);
      if (seen.length === 3) break;
    }
    assert.deepEqual(seen, [
      ['micLevel', { level: 1 }],
      ['streamAdded', { type: 'remote', streamIndex: 1, csrc: 7 }],
      ['micLevel', { level: 2 }],
    ]);
    assert.deepEqual(await events.next(), { done: true, value: undefined });
  });

  test('an event name that is given twice counts once', async () => {
    const events = meeting.events(['micLevel', 'micLevel']);
    for (const level of [1, 2]) engine.fire('NotifyMicLevel', level);
    assert.equal((await events.next()).value[1].level, 1);
    assert.equal((await events.next()).value[1].level, 2);
    await events.return();
  });

  test('several events can be requested before they arrive', async () => {
    const events = meeting.events(['micLevel']);
    const asked = [events.next(), events.next()];
    for (const level of [1, 2]) engine.fire('NotifyMicLevel', level);
    const answers = await Promise.all(asked);
    assert.deepEqual(
      answers.map(({ value }) => value[1].level),
      [1, 2],
    );
    const last = events.next();
    await events.return();
    assert.deepEqual(await last, { done: true, value: undefined });
  });

  test('events() delivers what had arrived, then throws the reason of its signal', async () => {
    const controller = new AbortController();
    const events = meeting.events(['micLevel'], { signal: controller.signal });
    engine.fire('NotifyMicLevel', 1);
    await meeting.waitFor('micLevel');
    controller.abort(new Error('enough'));
    assert.equal((await events.next()).value[1].level, 1);
    await assert.rejects(events.next(), { message: 'enough' });
    const early = meeting.events(['micLevel'], { signal: AbortSignal.abort(new Error('never')) });
    await assert.rejects(early.next(), { message: 'never' });
  });

  test('a loop over events can be left, even after its signal was aborted in the loop body', async () => {
    const controller = new AbortController();
    const events = meeting.events(['micLevel'], { signal: controller.signal });
    for (const level of [1, 2]) engine.fire('NotifyMicLevel', level);
    const levels = [];
    for await (const [, { level }] of events) {
      levels.push(level);
      controller.abort(new Error('enough'));
      break;
    }
    assert.deepEqual(levels, [1]);
    assert.deepEqual(await events.next(), { done: true, value: undefined });
  });

  test('streams is up to date when the listeners of a stream event are called', async () => {
    const listed = () => meeting.streams.filter(({ streamIndex }) => streamIndex >= 40);
    const seen = [];
    const where = () => seen.push(listed()) === 3;
    const waits = ['streamAdded', 'streamUpdated'].map((name) => meeting.waitFor(name, { where }));
    engine.fire('NotifyStreamAdded', remote(40), 7);
    engine.fire('NotifyStreamUpdated', remote(40), 9);
    engine.fire('NotifyStreamUpdated', remote(41), 9);
    await waits[1];
    const stream = (csrc) => [{ type: 'remote', streamIndex: 40, csrc }];
    assert.deepEqual(seen, [stream(7), stream(9), stream(9)]);
    const removed = meeting.waitFor('streamRemoved');
    engine.fire('NotifyStreamRemoved', remote(40), 9);
    await removed;
    assert.deepEqual(listed(), []);
    engine.fire('NotifyStreamAdded', remote(1), 7);
    await meeting.waitFor('streamAdded');
  });

  // ---- Answers

  test('a join rejects on the disconnect event, with or without a status event before it', async () => {
    for (const statuses of [[false], []]) {
      const joining = meeting.join({ uri: 'scripted' });
      for (const connected of statuses) engine.fire('NotifyCallConnectionStatus', connected);
      engine.fire('NotifyCallDisconnect', 4, 'the reason', 77);
      await assert.rejects(joining, (error) => {
        assert.ok(error instanceof CallError);
        assert.deepEqual([error.callId, error.reason, error.code], [4, 'the reason', 77]);
        return true;
      });
    }
  });

  test('a join passes the whole record to the engine', async () => {
    const turnServer = {
      protocol: 'udp',
      fqdn: 'relay.example',
      address: '192.0.2.1',
      port: 3478,
      username: 'user',
      password: 'secret',
      priority: 1,
      bandwidth: 2,
    };
    const joining = meeting.join({ uri: 'scripted', turnServers: [turnServer], maxBandwidth: 5 });
    engine.fire('NotifyCallConnectionStatus', true);
    await joining;
    const { params } = engine.calls().find(({ operation }) => operation === 'ConnectCall').args;
    assert.equal(params.uri, 'scripted');
    assert.equal(params.maxBandwidth, 5);
    assert.equal(params.enableClientDrivenLayouts, true);
    assert.equal(params.mediaStreamState.incomingVideoEnabled, true);
    assert.equal(params.mediaStreamState.outgoingVideoMuted, false);
    assert.equal(params.turnServers[0].password, 'secret');
  });

  test('the error of a failed share names the source', async () => {
    await join();
    for (const [share, what] of [
      [{ type: 'screen', screenId: 7 }, 'screen 7'],
      [{ type: 'window', screenId: 7, windowId: 5 }, 'window 5'],
      [{ type: 'application' }, 'application'],
    ]) {
      const answer = meeting.startPresentation(share);
      engine.fire('NotifyScreenShareStatus', 1);
      await assert.rejects(answer, {
        name: 'ShareError',
        message: `startPresentation was answered with "failed": ${what}`,
      });
    }
  });

  test('every status settles its promise', async () => {
    await join();
    const ask = {
      token: () => meeting.requestContentShareToken(),
      start: () => meeting.startPresentation({ type: 'screen' }),
      stop: () => meeting.stopPresentation(),
      release: () => meeting.releaseContentShareToken(),
    };
    for (const [what, status, rejection] of [
      ['token', 4, 'token_denied'],
      ['token', 3],
      ['start', 2, 'denied'],
      ['start', 1, 'failed'],
      ['start', 0],
      ['stop', 6],
      ['release', 7],
    ]) {
      const answer = ask[what]();
      // Neither a status without a name nor another's settles it.
      engine.fire('NotifyScreenShareStatus', 5);
      engine.fire('NotifyScreenShareStatus', what === 'token' ? 2 : 4);
      engine.fire('NotifyScreenShareStatus', status);
      if (rejection) {
        await assert.rejects(answer, (error) => {
          assert.ok(error instanceof ShareError);
          return error.status === rejection;
        });
      } else {
        assert.equal(await answer, undefined);
      }
    }
    assert.deepEqual(
      engine.operations().filter((name) => /Presentation|Token/.test(name)),
      [
        ...['RequestContentShareToken', 'RequestContentShareToken'],
        ...['StartPresentation', 'StartPresentation', 'StartPresentation'],
        ...['StopPresentation', 'ReleaseContentShareToken'],
      ],
    );
  });

  test('what cannot enter widget mode is refused before the wait for the next second', async (t) => {
    mockClocks(t, { apis: ['Date'], now: Date.now() });
    added(50);
    await meeting.waitFor('streamAdded');
    // The second one would wait for ever: the clock stands still.
    for (let attempt = 0; attempt < 2; attempt += 1) {
      await assert.rejects(meeting.enterWidgetMode(remote(50)), {
        name: 'RangeError',
        message:
          'The stream remote-50 cannot enter widget mode: that is for remote streams from 0 to 49',
      });
    }
    engine.fire('NotifyStreamRemoved', remote(50), 7);
    await meeting.waitFor('streamRemoved');
  });

  test('a share that the end of the call overtakes rejects with that', async () => {
    await join();
    const answer = meeting.requestContentShareToken();
    engine.fire('NotifyCallDisconnect', 1, 'the call was dropped', 503);
    await assert.rejects(answer, { name: 'CallError', code: 503 });
  });

  const tick = async (t, milliseconds) => {
    t.mock.timers.tick(milliseconds);
    await setImmediate();
  };

  test('a join that first waits for the end of the last call has one timeout for both', async (t) => {
    await join();
    const left = meeting.leave();
    mockClocks(t, { apis: ['setTimeout'] });
    let reason;
    meeting.join({ uri: 'scripted' }, { timeout: 400 }).catch((error) => (reason = error));
    await tick(t, 399);
    engine.fire('NotifyCallDisconnect', 1, 'left', 0);
    await left;
    assert.deepEqual(
      engine.operations().filter((name) => name.endsWith('Call')),
      ['ConnectCall', 'DisconnectCall', 'ConnectCall'],
    );
    assert.equal(reason, undefined);
    await tick(t, 1);
    assert.equal(reason?.message, 'Joining took longer than 400 ms');
    assert.equal(engine.operations().at(-1), 'DisconnectCall');
  });

  test('of two joins that wait for the end of the last call the second is rejected', async () => {
    await join();
    const left = meeting.leave();
    const outcomes = Promise.allSettled([
      meeting.join({ uri: 'scripted' }),
      meeting.join({ uri: 'scripted' }),
    ]);
    engine.fire('NotifyCallDisconnect', 1, 'left', 0);
    await left;
    engine.fire('NotifyCallConnectionStatus', true);
    const reasons = (await outcomes).map(({ reason }) => reason?.message).sort();
    assert.deepEqual(reasons, ['The meeting is in a call already: leave() it first', undefined]);
    assert.equal(engine.operations().filter((name) => name === 'ConnectCall').length, 2);
  });

  test('undefined properties of a join have their defaults', async () => {
    const joining = meeting.join({
      uri: 'scripted',
      maxBandwidth: undefined,
      mediaStreamState: { incomingAudioEnabled: undefined, outgoingAudioMuted: true },
    });
    engine.fire('NotifyCallConnectionStatus', true);
    await joining;
    const { params } = engine.calls().find(({ operation }) => operation === 'ConnectCall').args;
    assert.equal(params.maxBandwidth, 4_000_000);
    assert.equal(params.mediaStreamState.incomingAudioEnabled, true);
    assert.equal(params.mediaStreamState.outgoingAudioMuted, true);
  });

  // Requests it, and aborts at once.
  const giveUp = (ask) => assert.rejects(ask({ timeout: 0 }), { name: 'TimeoutError' });
  const start = (limits) => meeting.startPresentation({ type: 'screen' }, limits);
  const sharing = () => engine.operations().filter((name) => /Presentation|Token/.test(name));
  const [STARTED, FAILED, GRANTED, DENIED, STOPPED, RELINQUISHED] = [0, 1, 3, 4, 6, 7];

  for (const [what, begin, end, operations, answers] of [
    [
      'a share',
      start,
      () => meeting.stopPresentation(),
      ['StartPresentation', 'StopPresentation'],
      { begun: STARTED, refused: FAILED, over: STOPPED },
    ],
    [
      'a token',
      (limits) => meeting.requestContentShareToken(limits),
      () => meeting.releaseContentShareToken(),
      ['RequestContentShareToken', 'ReleaseContentShareToken'],
      { begun: GRANTED, refused: DENIED, over: RELINQUISHED },
    ],
  ]) {
    test(`${what} that was aborted is ended even before its answer has arrived`, async () => {
      await join();
      await giveUp(begin);
      let isOver = false;
      const ended = end().then(() => (isOver = true));
      assert.deepEqual(sharing(), operations);
      engine.fire('NotifyScreenShareStatus', answers.begun);
      await meeting.waitFor('screenShareStatus');
      assert.equal(isOver, false);
      engine.fire('NotifyScreenShareStatus', answers.over);
      await ended;
      await end();
      assert.deepEqual(sharing(), operations);
    });

    test(`${what} that was aborted and then refused by the engine is not ended again`, async () => {
      await join();
      await giveUp(begin);
      const ended = end();
      engine.fire('NotifyScreenShareStatus', answers.refused);
      await ended;
      await end();
      assert.deepEqual(sharing(), operations);
    });
  }

  test('a refused share leaves the previous share active, which can be stopped', async () => {
    await join();
    for (const status of [STARTED, FAILED]) {
      const answer = start().catch(({ name }) => name);
      engine.fire('NotifyScreenShareStatus', status);
      assert.equal(await answer, status === STARTED ? undefined : 'ShareError');
    }
    const stopped = meeting.stopPresentation();
    engine.fire('NotifyScreenShareStatus', STOPPED);
    await stopped;
    assert.equal(sharing().at(-1), 'StopPresentation');
  });

  test('the end of a share settles the requests before it, not a share requested after it', async () => {
    await join();
    await giveUp(start);
    const stopped = meeting.stopPresentation();
    await giveUp(start);
    for (const status of [STARTED, STOPPED]) engine.fire('NotifyScreenShareStatus', status);
    await stopped;
    const again = meeting.stopPresentation();
    assert.equal(sharing().filter((name) => name === 'StopPresentation').length, 2);
    for (const status of [STARTED, STOPPED]) engine.fire('NotifyScreenShareStatus', status);
    await again;
  });

  test('a share that the engine cancels is over', async () => {
    await join();
    await giveUp(start);
    const stopped = meeting.stopPresentation();
    engine.fire('NotifyScreenShareStatus', STOPPED);
    await stopped;
    await meeting.stopPresentation();
    assert.deepEqual(sharing(), ['StartPresentation', 'StopPresentation']);
  });

  test('the end of the call ends share and token, whether the engine notifies it or not', async () => {
    await join();
    for (const [ask, status] of [
      [(limits) => meeting.requestContentShareToken(limits), GRANTED],
      [start, STARTED],
    ]) {
      const answer = ask();
      engine.fire('NotifyScreenShareStatus', status);
      await answer;
    }
    engine.clearCalls();
    engine.fire('NotifyCallDisconnect', 1, 'the call was dropped', 503);
    await meeting.waitFor('callDisconnect');
    await meeting.stopPresentation();
    await meeting.releaseContentShareToken();
    assert.deepEqual(engine.operations(), []);
  });

  test('a share can be aborted, and its late answer is still taken into account', async () => {
    await join();
    const controller = new AbortController();
    const answer = meeting.startPresentation({ type: 'screen' }, { signal: controller.signal });
    controller.abort(new Error('enough'));
    await assert.rejects(answer, { message: 'enough' });
    engine.fire('NotifyScreenShareStatus', 0);
    await meeting.waitFor('screenShareStatus');
    const stopped = meeting.stopPresentation();
    engine.fire('NotifyScreenShareStatus', 6);
    await stopped;
    assert.ok(engine.operations().includes('StopPresentation'));
  });

  test('an exception from the engine rejects the call and does not affect the next one', async () => {
    const failing = async (operation, attempt) => {
      engine.failOperation(operation, { throws: 'no network' });
      await assert.rejects(attempt, { message: 'no network' });
      engine.failOperation(operation, null);
    };
    await failing('ConnectCall', () => meeting.join({ uri: 'scripted' }));
    await join();
    await failing('RequestContentShareToken', () => meeting.requestContentShareToken());
    await failing('DisconnectCall', () => meeting.leave());
    const left = meeting.leave();
    engine.fire('NotifyCallDisconnect', 1, 'left', 0);
    assert.equal((await left).reason, 'left');
  });
});
