// Meetings on the embedded engine: joining, leaving, sharing, widget mode, closing.

import assert from 'node:assert/strict';
import { existsSync, readdirSync, readFileSync, rmSync, statSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { runInChild } from '../../support/child.mjs';
import { collectUntil } from '../../support/collector.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { face, freshFace, joinMeeting, mockClocks, openMeeting } from '../../support/face.mjs';
import { LOCAL, remote } from '../../support/streams.mjs';

const { CallError, ClosedError, Meeting, ShareError, TimeoutError } = face;

const REMOTE = remote(0);

// The files in /dev/shm, by name, that this process has mapped. A semaphore is mapped under a name
// of before, so its inode tells.
function ownSegments() {
  const lines = readFileSync('/proc/self/maps', 'utf8').split('\n');
  const inodes = lines
    .filter((line) => line.includes(' /dev/shm/'))
    .map((line) => line.split(/ +/)[4]);
  return readdirSync('/dev/shm').filter((name) => {
    const found = statSync(path.join('/dev/shm', name), { throwIfNoEntry: false });
    return found && inodes.includes(`${found.ino}`);
  });
}

test('join resolves when the engine has joined, and leave resolves with how the call ended', async (t) => {
  const meeting = await openMeeting(t);
  const connected = meeting.waitFor('callConnectionStatus');
  assert.equal(await meeting.join({ uri: 'tessel:demo' }), undefined);
  assert.deepEqual(await connected, { connected: true });
  assert.deepEqual(await meeting.leave(), { callId: 1, reason: 'the call was left', code: 0 });
});

test('omitted properties of a join, and of its media state, have their defaults', async (t) => {
  const meeting = await openMeeting(t);
  const states = meeting.events(['mediaMuteState']);
  await meeting.join({
    uri: 'tessel:demo',
    meetingFeatures: ['feature'],
    mediaStreamState: { outgoingAudioMuted: true },
  });
  assert.deepEqual(await states.next(), {
    done: false,
    value: ['mediaMuteState', { mediaType: 'audio', muted: true }],
  });
  assert.deepEqual(meeting.wrapper.getMediaMeetingAttributes(), [{ value: 'feature' }]);
});

test('a meeting knows its participants', async (t) => {
  const meeting = await openMeeting(t);
  assert.deepEqual(meeting.participants, []);
  const told = meeting.waitFor('participants', { where: (all) => all.length > 0 });
  await meeting.join({
    uri: 'tessel:demo?participants=1&name=0:Zo%C3%AB&speak=0@0.5-86400',
    endpointName: 'Ada',
    mediaStreamState: { outgoingAudioMuted: true },
  });
  const [me, other, ...more] = await told;
  assert.deepEqual(more, []);
  assert.equal(meeting.participants[1], other);
  assert.deepEqual(me, {
    ...{ stream: LOCAL, csrc: meeting.wrapper.getFrame(LOCAL, 0).csrc, guid: me.guid, name: 'Ada' },
    ...{ audioMuted: true, videoMuted: false, speaking: false, presenting: false },
  });
  const { csrc } = meeting.streams.find(({ type }) => type === 'remote');
  assert.deepEqual(other, {
    ...{ stream: REMOTE, csrc, guid: other.guid, name: 'Zoë' },
    ...{ audioMuted: false, videoMuted: false, speaking: false, presenting: false },
  });
  await meeting.waitFor('participants', { where: ([, { speaking }]) => speaking });
  await Promise.all([
    meeting.waitFor('participants', { where: ({ length }) => length === 0 }),
    meeting.leave(),
  ]);
  assert.deepEqual(meeting.participants, []);
});

test("a refused join rejects with the engine's reason, and the next one may be joined", async (t) => {
  const meeting = await openMeeting(t);
  for (const [uri, reason, code] of [
    ['tessel:demo?refuse=403', 'the meeting refused the join', 403],
    ['tessel:demo?colour=red', 'unknown parameter: colour', 400],
  ]) {
    await assert.rejects(meeting.join({ uri }), (error) => {
      assert.ok(error instanceof CallError);
      assert.deepEqual([error.name, error.reason, error.code], ['CallError', reason, code]);
      assert.equal(error.message, `${reason} (${code})`);
      return true;
    });
  }
  await meeting.join({ uri: 'tessel:demo' });
});

test('a join with an invalid record rejects with a TypeError, and the engine is not called', async (t) => {
  const meeting = await openMeeting(t);
  await assert.rejects(meeting.join({ uri: 5 }), {
    name: 'TypeError',
    message: 'Wrong type for property uri on object ConnectParams, expected String',
  });
  await meeting.join({ uri: 'tessel:demo' });
  assert.equal((await meeting.leave()).callId, 1);
});

test('an invalid record rejects before the wait for the next second', async (t) => {
  stopTheClock(t);
  const { TesselWrapper } = face;
  (await openMeeting()).close();
  const all = { appVersion: '', configPath: '', logPath: '', logPrefix: '', userAgent: '' };
  const { logPath, ...withoutLog } = all;
  assert.equal(logPath, '');
  for (const record of [
    withoutLog,
    ...Object.keys(all).flatMap((name) => [5, null].map((value) => ({ ...all, [name]: value }))),
  ]) {
    const refusal = ({ name, message }) => ({ name, message });
    const refused = [];
    try {
      new TesselWrapper(record).destroy();
    } catch (error) {
      refused.push(refusal(error));
    }
    // The clock does not advance: a wait for the next second never ends.
    await assert.rejects(Meeting.open(record), (error) => refused.push(refusal(error)) > 0);
    assert.deepEqual(refused[1], refused[0]);
  }
  for (const record of [undefined, null, '/tmp']) {
    await assert.rejects(Meeting.open(record), {
      name: 'TypeError',
      message: "open expects an object with a logPath: { logPath: '/tmp' }",
    });
  }
});

test('opening rejects unknown properties and accepts every known one', async (t) => {
  await assert.rejects(Meeting.open({ logPath: temporaryDirectory(t), logPrefx: 'p-' }), {
    name: 'TypeError',
    message: 'Unknown property logPrefx on object CreateParams',
  });
  const names = ['appVersion', 'configPath', 'logPrefix', 'userAgent'];
  const all = Object.fromEntries(names.map((name) => [name, '']));
  const meeting = await Meeting.open({ ...all, logPath: temporaryDirectory(t) });
  meeting.close();
});

test('a join with an unknown property rejects, and the engine is not called', async (t) => {
  const meeting = await openMeeting(t);
  for (const [part, message] of [
    [{ endpoitName: 'me' }, 'Unknown property endpoitName on object ConnectParams'],
    [
      { mediaStreamState: { outgoingAudioMutd: true } },
      'Unknown property outgoingAudioMutd on object MediaStreamState',
    ],
    ...[true, 5, '', null, []].map((mediaStreamState) => [
      { mediaStreamState },
      'Wrong type for property mediaStreamState on object ConnectParams, expected Object',
    ]),
  ]) {
    await assert.rejects(meeting.join({ uri: 'tessel:demo', ...part }), {
      name: 'TypeError',
      message,
    });
  }
  await meeting.join({ uri: 'tessel:demo' });
  assert.equal((await meeting.leave()).callId, 1);
});

test('every declared property of a join is accepted', async (t) => {
  const meeting = await openMeeting(t);
  await meeting.join({
    uri: 'tessel:demo',
    endpointName: 'me',
    meetingGuid: '',
    maxBandwidth: 1_000_000,
    forceTurn: false,
    enableRdc: false,
    isVesperMeeting: false,
    enableClientDrivenLayouts: true,
    enableClientLayoutOrdering: false,
    meetingAttributes: '',
    meetingFeatures: ['feature'],
    gracefulEvents: [{ event: 'event', enabled: true }],
    mediaStreamState: {
      contentStreamEnabled: true,
      incomingAudioEnabled: true,
      incomingVideoEnabled: true,
      outgoingAudioMuted: false,
      outgoingVideoMuted: false,
    },
    turnServers: [
      {
        ...{ protocol: 'udp', fqdn: 'relay.example', address: '192.0.2.1', port: 3478 },
        ...{ username: 'user', password: 'secret', priority: 1, bandwidth: 1 },
      },
    ],
  });
});

test('joining sets both mutes, whatever they were before', async (t) => {
  const meeting = await openMeeting(t);
  const states = meeting.events(['mediaMuteState']);
  meeting.wrapper.muteLocalAudio(true);
  await meeting.join({ uri: 'tessel:demo' });
  const expected = [
    { mediaType: 'audio', muted: true },
    { mediaType: 'audio', muted: false },
  ];
  for (const state of expected) assert.deepEqual((await states.next()).value[1], state);
});

test('a join without a record rejects, and the engine is not called', async (t) => {
  const meeting = await openMeeting(t);
  for (const given of [undefined, null, 'tessel:demo']) {
    await assert.rejects(meeting.join(given), {
      name: 'TypeError',
      message: "join expects an object with a uri: { uri: 'tessel:demo' }",
    });
  }
  await meeting.join({ uri: 'tessel:demo' });
  assert.equal((await meeting.leave()).callId, 1);
});

test('the stack of an error from an answer or a timer shows the call that it rejects', async (t) => {
  const meeting = await openMeeting(t);
  const expectFrames = async (name, start, ask) => {
    function application() {
      return ask();
    }
    await assert.rejects(application(), (error) => {
      assert.equal(error.name, name);
      const [first, ...frames] = error.stack.split('\n');
      assert.equal(first, `${name}: ${error.message}`);
      assert.ok(error.message.startsWith(start), error.message);
      assert.ok(
        frames.some((frame) => frame.startsWith('    at application ')),
        error.stack,
      );
      return true;
    });
  };
  const timeout = 1;
  const endless = { uri: 'tessel:demo?join=3600' };
  await expectFrames('TimeoutError', 'No micLevel within 1 ms', () =>
    meeting.waitFor('micLevel', { timeout }),
  );
  await expectFrames('TimeoutError', 'Joining took longer than 1 ms', () =>
    meeting.join(endless, { timeout }),
  );
  // This one waits for the end of the call before.
  await expectFrames('CallError', 'the meeting refused the join', () =>
    meeting.join({ uri: 'tessel:demo?refuse=403' }),
  );
  await meeting.join({ uri: 'tessel:demo' });
  await expectFrames('ShareError', 'startPresentation was answered', () =>
    meeting.startPresentation({ type: 'screen' }),
  );
});

test('a join during a call, or during another join, rejects and changes nothing', async (t) => {
  const meeting = await openMeeting(t);
  const refusal = { message: 'The meeting is in a call already: leave() it first' };
  const joining = meeting.join({ uri: 'tessel:demo' });
  await assert.rejects(meeting.join({ uri: 'tessel:other' }), refusal);
  await joining;
  await assert.rejects(meeting.join({ uri: 'tessel:other' }), refusal);
  assert.equal((await meeting.leave()).callId, 1);
});

test('an aborted join is ended at the engine, and does not disturb the next one', async (t) => {
  const meeting = await openMeeting(t);
  const status = meeting.waitFor('callConnectionStatus');
  const controller = new AbortController();
  const joining = meeting.join({ uri: 'tessel:demo?join=3600' }, { signal: controller.signal });
  controller.abort(new Error('enough'));
  await assert.rejects(joining, { message: 'enough' });
  await meeting.join({ uri: 'tessel:demo' });
  assert.deepEqual(await status, { connected: false });
  assert.equal((await meeting.leave()).callId, 2);
});

test('a wait that rejects before it is awaited does not end the process', () => {
  const child = runInChild(
    async ({ openMeeting: open }, { say }) => {
      const meeting = await open();
      const sayName = ({ name }) => say(name);
      const present = meeting.waitFor('streamAdded');
      const late = meeting.waitFor('micLevel', { timeout: 1 });
      await meeting.waitFor('micLevel', { timeout: 20 }).catch(sayName);
      await late.catch(sayName);
      meeting.close();
      await new Promise(setImmediate);
      await present.catch(sayName);
    },
    { modules: ['./support/face.mjs', './support/child.mjs'] },
  );
  assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
  assert.deepEqual(child.said, ['TimeoutError', 'TimeoutError', 'ClosedError']);
});

// Rejected promises that are not awaited, with the error with which Node.js ends the process.
const FORGOTTEN = {
  'a join with a misspelt property': [
    (meeting) => void meeting.join({ uri: 'tessel:demo', nope: 1 }),
    'TypeError: Unknown property nope on object ConnectParams',
  ],
  'a join that is refused': [
    (meeting) => void meeting.join({ uri: 'tessel:demo?refuse=403' }),
    'CallError: the meeting refused the join (403)',
  ],
  'a share that is denied': [
    (meeting) => void meeting.startPresentation({ type: 'screen' }),
    'ShareError: startPresentation was answered with "denied": request the token first',
  ],
  'an entry of a stream that is not there': [
    (meeting) => void meeting.enterWidgetMode({ type: 'remote', streamIndex: 7 }),
    'Error: The stream remote-7 is not there, or not yet',
  ],
  'a leave with a wrong option': [
    (meeting) => void meeting.leave(500),
    'TypeError: Wrong options 500 of leave, expected an object: { signal, timeout }',
  ],
  'a wait for an event that there is not': [
    (meeting) => void meeting.waitFor('joined'),
    'TypeError: Unknown event joined',
  ],
};

for (const [what, [ask, message]] of Object.entries(FORGOTTEN)) {
  test(`${what} is reported by node when nobody awaits it`, () => {
    const child = runInChild(
      `async ({ openMeeting }) => {
        const meeting = await openMeeting();
        (${ask})(meeting);
        // Not reached when it is reported.
        await meeting.waitFor('vspUpdateVOQI', { timeout: 5000 }).catch(() => {});
        meeting.close();
      }`,
      { modules: ['./support/face.mjs'] },
    );
    assert.deepEqual([child.code, child.signal], [1, null]);
    assert.ok(child.stderr.includes(message), child.stderr);
  });
}

test('a join that exceeds its timeout rejects with a TimeoutError', async (t) => {
  const meeting = await openMeeting(t);
  await assert.rejects(meeting.join({ uri: 'tessel:demo?join=3600' }, { timeout: 1 }), (error) => {
    assert.ok(error instanceof TimeoutError);
    assert.equal(error.message, 'Joining took longer than 1 ms');
    return true;
  });
});

test('leave without a call resolves at once with undefined', async (t) => {
  const meeting = await openMeeting(t);
  assert.equal(await meeting.leave(), undefined);
});

test('leave during a join settles both', async (t) => {
  const meeting = await openMeeting(t);
  const joining = assert.rejects(meeting.join({ uri: 'tessel:demo?join=3600' }), { code: 0 });
  assert.equal((await meeting.leave()).code, 0);
  await joining;
});

test('a dropped call can be joined again', async (t) => {
  const meeting = await openMeeting(t);
  await meeting.join({ uri: 'tessel:demo?drop=0.01' });
  assert.equal((await meeting.waitFor('callDisconnect')).code, 503);
  await meeting.join({ uri: 'tessel:demo' });
});

test('streams lists the present streams', async (t) => {
  const meeting = await openMeeting(t);
  const events = meeting.events(['streamAdded', 'streamRemoved']);
  await meeting.join({ uri: 'tessel:demo?participants=2' });
  const added = [(await events.next()).value[1], (await events.next()).value[1]];
  assert.deepEqual(meeting.streams, added);
  assert.deepEqual(
    added.map(({ type, streamIndex }) => [type, streamIndex]),
    [
      ['remote', 0],
      ['remote', 1],
    ],
  );
  await meeting.leave();
  assert.deepEqual(meeting.streams, []);
});

// ---- Opening

test('a meeting cannot be constructed, only opened', () => {
  for (const args of [
    [{ logPath: '/dev/null' }],
    [],
    [{ logPath: '/dev/null' }, Symbol('opening')],
  ])
    assert.throws(() => new Meeting(...args).close(), {
      name: 'TypeError',
      message: 'A meeting is opened, not constructed: use await Meeting.open()',
    });
});

test('in a worker thread meetings and widgets are refused with the reason', () => {
  const child = runInChild(
    async ({ requireFace }, { say }) => {
      const { Worker } = require('node:worker_threads');
      const program = `
        const { parentPort, workerData } = require('node:worker_threads');
        const { Meeting, Widget } = require(workerData);
        const say = ({ name, message }) => parentPort.postMessage(name + ': ' + message);
        try {
          new Widget({ shm_name: '/nope', sem_name: '/nope' });
        } catch (error) {
          say(error);
        }
        Meeting.open({ logPath: '/dev/null' }).catch(say);`;
      const workerData = requireFace.resolve('./index.js');
      new Worker(program, { eval: true, workerData }).on('message', say);
    },
    { modules: ['./support/face.mjs', './support/child.mjs'] },
  );
  assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
  const advice =
    'in a test runner, run the tests in processes instead of threads (vitest: --pool forks); ' +
    'elsewhere, start a process with child_process.fork() instead of the worker';
  assert.deepEqual(child.said, [
    `Error: Widget is only possible on the main thread: ${advice}`,
    `Error: Meeting is only possible on the main thread: ${advice}`,
  ]);
});

// ---- Sharing

test('the token is granted and returned, and a share is started and stopped', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo');
  const statuses = [];
  meeting.on('screenShareStatus', ({ status }) => statuses.push(status));
  await meeting.requestContentShareToken();
  await meeting.startPresentation({ type: 'screen' });
  await meeting.stopPresentation();
  await meeting.releaseContentShareToken();
  assert.deepEqual(statuses, ['token_granted', 'started', 'stopped', 'token_relinquished']);
});

test("a denied or failed request rejects with the engine's status", async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo?present=0@0', 4);
  const rejection =
    (operation, status, advice = '') =>
    (error) => {
      assert.ok(error instanceof ShareError);
      assert.equal(error.status, status);
      assert.equal(error.message, `${operation} was answered with "${status}"${advice}`);
      return true;
    };
  await assert.rejects(
    meeting.requestContentShareToken(),
    rejection('requestContentShareToken', 'token_denied'),
  );
  await assert.rejects(
    meeting.startPresentation({ type: 'screen' }),
    rejection(
      'startPresentation',
      'denied',
      ': request the token first, with requestContentShareToken',
    ),
  );
  await meeting.leave();
  await meeting.join({ uri: 'tessel:demo' });
  await meeting.requestContentShareToken();
  await assert.rejects(
    meeting.startPresentation({ type: 'screen', screenId: 2 }),
    rejection('startPresentation', 'failed', ': screen 2'),
  );
});

test('a share with an invalid record rejects with a TypeError', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo');
  await assert.rejects(meeting.startPresentation({ type: 'Screen' }), {
    name: 'TypeError',
    message: 'Invalid value for type ShareType, expected screen|application|window',
  });
});

test('stopping without a share and returning without a token resolve at once', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo');
  assert.equal(await meeting.stopPresentation(), undefined);
  assert.equal(await meeting.releaseContentShareToken(), undefined);
  await meeting.requestContentShareToken();
  await meeting.startPresentation({ type: 'screen' });
  await meeting.leave();
  assert.equal(await meeting.stopPresentation(), undefined);
  assert.equal(await meeting.releaseContentShareToken(), undefined);
});

// ---- Closing

test('closing rejects pending waits, ends loops, and may be repeated', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo');
  const closed = (error) => {
    assert.ok(error instanceof ClosedError);
    assert.equal(error.message, 'The meeting was closed');
    return true;
  };
  const never = meeting.waitFor('vspUpdateVOQI');
  const events = meeting.events(['vspUpdateVOQI']).next();
  const frames = meeting.frames({ type: 'content', streamIndex: 0 }, { rate: 0.001 });
  const frame = frames.next();
  assert.equal(meeting.isClosed, false);
  meeting.close();
  meeting.close();
  assert.equal(meeting.isClosed, true);
  await assert.rejects(never, closed);
  assert.deepEqual(await events, { done: true, value: undefined });
  assert.deepEqual(await frame, { done: true, value: undefined });
  await assert.rejects(meeting.waitFor('micLevel'), closed);
  await assert.rejects(meeting.join({ uri: 'tessel:demo' }), closed);
  await assert.rejects(meeting.enterWidgetMode(REMOTE), closed);
  await assert.rejects(meeting.leave(), closed);
  await assert.rejects(meeting.stopPresentation(), closed);
  await assert.rejects(meeting.releaseContentShareToken(), closed);
  assert.deepEqual(await meeting.events(['micLevel']).next(), { done: true, value: undefined });
});

test('closing ends what only waits for an end as if that had been told', async (t) => {
  for (const end of ['leave', 'stopPresentation', 'releaseContentShareToken']) {
    const meeting = await joinMeeting(t, 'tessel:demo');
    await meeting.requestContentShareToken();
    await meeting.startPresentation({ type: 'screen' });
    const controller = new AbortController();
    const givenUp = meeting[end]({ signal: controller.signal });
    const answer = meeting[end]();
    controller.abort(new Error('enough'));
    meeting.close();
    assert.equal(await answer, undefined, end);
    await assert.rejects(givenUp, { message: 'enough' });
  }
});

test('a process that leaves and closes without awaiting ends well', () => {
  const child = runInChild(
    async ({ joinMeeting: join }) => {
      const meeting = await join(undefined, 'tessel:demo');
      meeting.leave();
      meeting.close();
    },
    { modules: ['./support/face.mjs'] },
  );
  assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
});

test('closing ends what waits also when the engine fails to go', () => {
  const child = runInChild(
    async (scripted, { openMeeting: open, face: { frameCounters: counters } }, { say }) => {
      const meeting = await open();
      const stream = { type: 'remote', streamIndex: 0 };
      const added = meeting.waitFor('streamAdded');
      scripted.fire('NotifyStreamAdded', stream, 7);
      await added;
      await meeting.enterWidgetMode(stream);
      const never = meeting.waitFor('micLevel');
      const frame = meeting.frames(stream, { rate: 0.001 }).next();
      scripted.failOperation('DestroyTSLMManager', { throws: 'no way out' });
      try {
        meeting.close();
      } catch ({ message }) {
        say(message);
      }
      meeting.close();
      say(`${meeting.isClosed} ${counters().length}`);
      await never.catch(({ name }) => say(name));
      say((await frame).done);
      scripted.failOperation('DestroyTSLMManager', null);
      process.exit(0);
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
  assert.deepEqual(child.said, ['no way out', 'true 0', 'ClosedError', 'true']);
});

test('disposing a meeting closes it', async (t) => {
  const meeting = await openMeeting(t);
  meeting[Symbol.dispose]();
  assert.equal(meeting.isClosed, true);
});

test('a process that closes its meeting during a call ends by itself', () => {
  const child = runInChild(
    async ({ openMeeting: open }, { say }) => {
      const meeting = await open();
      await meeting.join({ uri: 'tessel:demo' });
      meeting.waitFor('callDisconnect').catch(({ name }) => say(name));
      meeting.close();
    },
    { modules: ['./support/face.mjs', './support/child.mjs'] },
  );
  assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
  assert.deepEqual(child.said, ['ClosedError']);
});

test('a meeting that only its listeners refer to stays alive', async (t) => {
  let isCollected = false;
  let resolve;
  const heard = new Promise((settle) => (resolve = settle));
  await (async () => {
    const meeting = await openMeeting();
    await meeting.join({ uri: 'tessel:demo' });
    meeting.on('micLevel', () => {
      if (!isCollected) return;
      meeting.close();
      resolve();
    });
  })();
  // The addon's class holds the emitter of the latest meeting.
  await openMeeting(t);
  let rounds = 0;
  await collectUntil(() => ++rounds > 10);
  isCollected = true;
  await heard;
});

// ---- Segments

test('segments are readable by this user only, and the umask is restored', async (t) => {
  const usual = process.umask(0o022);
  t.after(() => process.umask(usual));
  const before = ownSegments();
  const meeting = await joinMeeting(t, 'tessel:demo', 1);
  await meeting.enterWidgetMode(REMOTE);
  const made = ownSegments().filter((name) => !before.includes(name));
  assert.equal(made.length, 4);
  for (const name of made) assert.equal(statSync(`/dev/shm/${name}`).mode & 0o777, 0o600, name);
  assert.equal(process.umask(), 0o022);
});

test('the umask is restored when constructing the wrapper fails', async () => {
  const usual = process.umask(0o022);
  await assert.rejects(Meeting.open({}), {
    name: 'TypeError',
    message: 'Missing property logPath on object CreateParams',
  });
  assert.equal(process.umask(usual), 0o022);
});

test('meetings that are opened at the same time have separate segments', async (t) => {
  const meetings = await Promise.all([openMeeting(t), openMeeting(t)]);
  const names = meetings.map((meeting) => meeting.wrapper.getSharedDataInfo().shm_name);
  assert.notEqual(names[0], names[1]);
  for (const name of names) assert.ok(existsSync(`/dev/shm${name}`));
});

test('copies of the package in one process have separate segments', async (t) => {
  const copies = [face, freshFace(), freshFace()];
  const meetings = await Promise.all(
    copies.map((copy) => copy.Meeting.open({ logPath: '/dev/null' })),
  );
  t.after(() => meetings.forEach((meeting) => meeting.close()));
  assert.equal(new Set(copies.map((copy) => copy.Meeting)).size, 3);
  const names = meetings.map((meeting) => meeting.wrapper.getSharedDataInfo().shm_name);
  assert.equal(new Set(names).size, 3);
});

let ahead = 0; // milliseconds

// Stops the clock in a second in which no segment was made: one of its own for every test.
function stopTheClock(t) {
  ahead += 10_000;
  mockClocks(t, { apis: ['Date'], now: Date.now() + ahead });
}

test('waiting for the next second can be aborted', async (t) => {
  stopTheClock(t);
  const meeting = await joinMeeting(t, 'tessel:demo', 1);
  await meeting.enterWidgetMode(REMOTE);
  meeting.exitWidgetMode(REMOTE);
  const controller = new AbortController();
  const { signal } = controller;
  const waits = [
    Meeting.open({ logPath: '' }, { signal }),
    meeting.enterWidgetMode(REMOTE, { signal }),
  ].map((wait) => assert.rejects(wait, { message: 'enough' }));
  controller.abort(new Error('enough'));
  await Promise.all(waits);
});

test('an operation with an aborted signal does not begin', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo', 1);
  const signal = AbortSignal.abort(new Error('enough'));
  const opening = Meeting.open({ logPath: '' }, { signal });
  opening.then(
    (opened) => opened.close(),
    () => {},
  );
  await assert.rejects(opening, { message: 'enough' });
  await assert.rejects(meeting.enterWidgetMode(REMOTE, { signal }), { message: 'enough' });
  assert.deepEqual(frameSegments(), []);
});

test('undefined properties of openMeeting have their defaults', async (t) => {
  const meeting = await Meeting.open({ logPath: '', userAgent: undefined, configPath: undefined });
  t.after(() => meeting.close());
  assert.equal(meeting.isClosed, false);
});

test("the engine's log and its new directory are accessible to this user only", async (t) => {
  const usual = process.umask(0o022);
  t.after(() => process.umask(usual));
  const logPath = path.join(temporaryDirectory(t), 'log');
  const meeting = await Meeting.open({ logPath, logPrefix: 'my-' });
  t.after(() => meeting.close());
  assert.equal(statSync(logPath).mode & 0o777, 0o700);
  assert.equal(statSync(path.join(logPath, 'my-tesselclient.log')).mode & 0o777, 0o600);
});

// The frame segments of remote stream 0.
const frameSegments = () => ownSegments().filter((name) => /^SHM\w{25}10$/.test(name));

test('a stream that leaves widget mode and enters it again has a new segment', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo', 1);
  const names = await meeting.enterWidgetMode(REMOTE);
  const first = frameSegments();
  meeting.exitWidgetMode(REMOTE);
  assert.deepEqual(frameSegments(), []);
  assert.deepEqual(await meeting.enterWidgetMode(REMOTE), names);
  const second = frameSegments();
  assert.deepEqual([first.length, second.length], [1, 1]);
  assert.notDeepEqual(first, second);
});

test('a stream that leaves widget mode before it has entered it does not enter', async (t) => {
  stopTheClock(t);
  const meeting = await joinMeeting(t, 'tessel:demo?participants=1', 1);
  await meeting.enterWidgetMode(REMOTE);
  meeting.exitWidgetMode(REMOTE);
  const given = {
    message: 'The stream remote-0 has left widget mode before it had entered it',
  };
  const entries = [meeting.enterWidgetMode(REMOTE), meeting.enterWidgetMode(REMOTE)];
  meeting.exitWidgetMode(REMOTE);
  for (const entry of entries) await assert.rejects(entry, given);
  const gone = assert.rejects(meeting.enterWidgetMode(REMOTE), given);
  await meeting.leave();
  await gone;
  assert.deepEqual(frameSegments(), []);
});

test('a meeting without its memory refuses an entry before the wait for the next second', async (t) => {
  stopTheClock(t);
  const meeting = await joinMeeting(t, 'tessel:demo?participants=1', 1);
  const names = await meeting.enterWidgetMode(REMOTE);
  meeting.exitWidgetMode(REMOTE);
  rmSync(`/dev/shm${names.shm_name}`);
  await assert.rejects(meeting.enterWidgetMode(REMOTE), {
    message: /^The memory of the meeting is not there, or not any more/,
  });
});

test('a stream that is in widget mode answers no signal that was aborted before', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo?participants=1', 1);
  await meeting.enterWidgetMode(REMOTE);
  const signal = AbortSignal.abort();
  await assert.rejects(meeting.enterWidgetMode(REMOTE, { signal }), { name: 'AbortError' });
  assert.equal(frameSegments().length, 1);
});

test('closing ends an entry into widget mode that waits', async (t) => {
  stopTheClock(t);
  const meeting = await joinMeeting(t, 'tessel:demo?participants=1', 1);
  await meeting.enterWidgetMode(REMOTE);
  meeting.exitWidgetMode(REMOTE);
  const entry = meeting.enterWidgetMode(REMOTE);
  meeting.close();
  await assert.rejects(entry, { name: 'ClosedError' });
});

test('a stream that is in widget mode stays in it when it enters again', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo', 1);
  const names = await meeting.enterWidgetMode(REMOTE);
  const segments = frameSegments();
  assert.deepEqual(names, meeting.wrapper.getSharedDataInfo());
  assert.deepEqual(await meeting.enterWidgetMode(REMOTE), names);
  assert.deepEqual(frameSegments(), segments);
});

test('only a present stream can enter widget mode, and it leaves it when it is removed', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo?participants=1', 1);
  await assert.rejects(meeting.enterWidgetMode({ type: 'remote', streamIndex: 1 }), {
    message:
      'The stream remote-1 is not there, or not yet: ' +
      'enter it when its "streamAdded" has come (there are: remote-0)',
  });
  await meeting.enterWidgetMode(REMOTE);
  assert.equal(frameSegments().length, 1);
  await meeting.leave();
  assert.deepEqual(frameSegments(), []);
  meeting.exitWidgetMode(REMOTE);
});
