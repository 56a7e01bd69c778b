// Cameras, microphones and speakers of real servers: chosen, changed during a call, plugged in and
// unplugged. Pictures are proved by their card's code, sound by its tone.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { CameraServer } from '../../support/camera_server.mjs';
import { startProcess } from '../../support/commanded_process.mjs';
import { JanusAdministrator } from '../../support/janus_administrator.mjs';
import { SilentServer } from '../../support/silent_server.mjs';
import { SoundServer, shareOf } from '../../support/sound_server.mjs';
import { LOCAL, remote } from '../../support/streams.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const SMALL = { width: 320, height: 180 };
const LARGE = { width: 1920, height: 1080 };
const ROUNDS = 4;
const LONGEST_MS = 15_000;

const camera = (videoDeviceId, { width, height, maxFPS = 30 } = SMALL) => ({
  ...{ videoDeviceId, videoDeviceName: '' },
  capability: { width, height, maxFPS },
});
const microphone = (audioInId) => ({ audioInId, audioInName: '', audioInSourceName: '' });
const speaker = (audioOutId) => ({ audioOutId, audioOutName: '', audioOutSourceName: '' });

const BARS = 7;
// Each bar is darker than the one to its left.
const isBars = (row) => row.every((luma, index) => index === 0 || luma < row[index - 1]);

// Settles when a picture of the stream has this width; it must show bars.
async function shows(member, stream, width) {
  for (let frameId = 0; ;) {
    const picture = await member.does('row', stream, BARS, frameId);
    if (picture.width === width) {
      assert.ok(isBars(picture.row), `${picture.row}`);
      assert.equal(picture.height, (width * 9) / 16);
      return;
    }
    ({ frameId } = picture);
  }
}

test('cameras are used before and during a call, and another one when one vanishes', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const cameras = await CameraServer.start(t);
  const first = await cameras.plug('first');
  const member = await openMember(t, { capture: SMALL, environment: cameras.environment });
  const viewer = await openMember(t);
  const uri = server.uri('meeting');
  let second;

  await t.test('the only one is shown before the call, in the size that was asked for', () =>
    shows(member, LOCAL, 320),
  );

  await t.test('it is sent', async () => {
    await member.does('join', uri, { endpointName: 'member' });
    await viewer.does('join', uri, { endpointName: 'viewer' });
    await shows(viewer, remote(0), 320);
    await viewer.does('knows', 'member', { videoMuted: false });
  });

  await t.test('a participant without a camera counts as muted', () =>
    member.does('knows', 'viewer', { videoMuted: true }),
  );

  await t.test('it captures in another size, which is notified', async () => {
    await member.does('forget');
    await member.does('call', 'setVideoDevice', camera('first', { width: 640, height: 360 }));
    await shows(viewer, remote(0), 640);
    await member.does('seen', 'streamUpdated', LOCAL);
  });

  await t.test('one that is plugged in is notified, and is sent once it is selected', async () => {
    second = await cameras.plug('second');
    await member.does('seen', 'deviceChange', { id: 'second', type: 'video' });
    await member.does('call', 'setVideoDevice', camera('second', { width: 480, height: 270 }));
    await shows(viewer, remote(0), 480);
    await member.does('seen', 'streamUpdated', LOCAL);
    await member.does('logged', 'uses second');
  });

  await t.test('one that is not there changes nothing', async () => {
    await member.does('call', 'setVideoDevice', camera('none', { width: 640, height: 360 }));
    await member.does('logged', 'there is no device none');
    const pictures = await member.does('pictures', LOCAL, 5);
    assert.deepEqual(new Set(pictures.map(({ width }) => width)), new Set([480]));
  });

  await t.test('the first one left follows one that vanishes', async () => {
    await member.does('forget');
    const { length } = await member.does('log');
    await cameras.unplug(second);
    await member.does('seen', 'deviceChange', { id: 'second', type: 'video' });
    await member.does('seen', 'streamUpdated', LOCAL);
    await member.does('logged', 'uses first', length);
    const { frameId } = await member.does('picture', LOCAL);
    await member.does('picture', LOCAL, frameId);
    await shows(viewer, remote(0), 480);
  });

  await t.test('without one nobody has a picture, and the call goes on', async () => {
    await member.does('forget');
    await cameras.unplug(first);
    await member.does('cleared', LOCAL);
    await member.does('seen', 'streamUpdated', LOCAL);
    await viewer.does('cleared', remote(0));
    await viewer.does('knows', 'member', { videoMuted: true });
    assert.equal((await member.does('leave')).code, 0);
  });

  // Large pictures are converted during a good part of the time.
  await t.test('two vanish while a picture of theirs is converted', async () => {
    await member.does('call', 'setVideoDevice', camera('', LARGE));
    for (const name of ['third', 'fourth']) {
      const plugged = await cameras.plug(name);
      await shows(member, LOCAL, LARGE.width);
      await cameras.unplug(plugged);
      await member.does('cleared', LOCAL);
    }
  });

  // Of each that takes the place of one that has vanished, some vanish while they are opened. Such a
  // one answers nothing for half a minute.
  await t.test('many vanish at once, and the engine waits for none of them', async () => {
    await member.does('call', 'setVideoDevice', camera('', SMALL));
    for (let round = 0; round < ROUNDS; ++round) {
      const plugged = [];
      for (const name of ['w', 'x', 'y', 'z']) plugged.push(await cameras.plug(name));
      await shows(member, LOCAL, SMALL.width);
      await Promise.all(plugged.map((each) => cameras.unplug(each)));
      const unpluggedAt = performance.now();
      await member.does('cleared', LOCAL);
      assert.ok(performance.now() - unpluggedAt < LONGEST_MS);
    }
  });

  await t.test('an engine that goes leaves no thread', async () => {
    await member.does('call', 'destroy');
    await member.does('threadsGone');
  });
});

test('microphones and speakers change during a call', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const ours = await SoundServer.start(t, { speakers: ['left', 'right'] });
  const theirs = await SoundServer.start(t);
  const low = await ours.plugMicrophone('low', 500);
  await ours.plugMicrophone('high', 1_500);
  const member = await openMember(t, { environment: ours.environment });
  const listener = await openMember(t, { environment: theirs.environment });
  await member.does('call', 'setAudioInDevice', microphone('low'));
  await member.does('call', 'setAudioOutDevice', speaker('left'));
  await member.does('join', server.uri('meeting'));
  await listener.does('join', server.uri('meeting', { microphone: 'tone:880' }));
  const isTone = (hertz) => (samples) => shareOf(hertz, samples) > 0.5;
  await Promise.all([
    theirs.hears(t, isTone(500)),
    ours.hears(t, isTone(880), 'left'),
    ours.hears(t, (samples) => samples.every((sample) => sample === 0), 'right'),
  ]);

  await t.test('by selection', async () => {
    await member.does('call', 'setAudioInDevice', microphone('high'));
    await theirs.hears(t, isTone(1_500));
    await member.does('call', 'setAudioOutDevice', speaker('right'));
    await ours.hears(t, isTone(880), 'right');
    await theirs.hears(t, isTone(1_500));
  });

  await t.test('because they vanish', async () => {
    await member.does('call', 'setAudioInDevice', microphone('low'));
    await theirs.hears(t, isTone(500));
    await member.does('forget');
    await ours.unplug(low);
    await member.does('seen', 'deviceChange', { id: 'low', type: 'audioIn' });
    await theirs.hears(t, isTone(1_500));
  });

  await t.test('because they are plugged in', async () => {
    await member.does('forget');
    const plugged = await ours.plugSpeaker('headset');
    await member.does('seen', 'deviceChange', { id: 'headset', type: 'audioOut' });
    await member.does('call', 'setAudioOutDevice', speaker('headset'));
    await ours.hears(t, isTone(880), 'headset');
    await ours.unplug(plugged);
    // PulseAudio's usual one is the first.
    await ours.hears(t, isTone(880), 'left');
  });

  await t.test('because the sound server restarts', async () => {
    await ours.restart();
    await ours.plugMicrophone('high', 1_500);
    await theirs.hears(t, isTone(1_500));
    await ours.hears(t, isTone(880), 'left');
    assert.equal((await member.does('leave')).code, 0);
  });
});

// Whether a client of PulseAudio still waits for the server's first answer, which it does for half a
// minute.
const isAwaited = ({ connections }) => connections.some(({ destroyed }) => !destroyed);

test('a call goes on, and ends, while the sound server does not answer', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const silent = await SilentServer.start(t);
  const directory = temporaryDirectory(t);
  const member = startProcess(t, './support/processes/room_member.mjs', {
    environment: { PULSE_SERVER: `tcp:127.0.0.1:${silent.port}` },
  });
  await member.does('open', directory, SMALL);
  await silent.reached();
  const uri = server.uri('meeting', { camera: 'card' });
  assert.deepEqual(await member.does('join', uri), { connected: true });
  await member.does('picture', LOCAL);
  assert.equal((await member.does('leave')).code, 0);
  await member.does('call', 'destroy');
  await member.does('open', directory, SMALL);
  assert.deepEqual(await member.does('join', uri), { connected: true });
  assert.ok(isAwaited(silent), 'the sound server was given up before');
  await member.does('exit', 3);
  assert.deepEqual(await member.ended, { code: 3, signal: null });
});

test('a call ends, and the next one begins, when its sound server does not answer any more', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const [ours, theirs] = [await SoundServer.start(t), await SoundServer.start(t)];
  await ours.plugMicrophone('low', 500);
  const member = startProcess(t, './support/processes/room_member.mjs', {
    environment: ours.environment,
  });
  await member.does('open', temporaryDirectory(t), SMALL);
  await member.does('call', 'setAudioInDevice', microphone('low'));
  const uri = server.uri('meeting', { camera: 'card' });
  await member.does('join', uri);
  const other = await openMember(t, { environment: theirs.environment });
  await other.does('join', server.uri('meeting', { microphone: 'tone:880' }));
  await theirs.hears(t, (samples) => shareOf(500, samples) > 0.5);
  await ours.hears(t, (samples) => shareOf(880, samples) > 0.5);

  ours.pause();
  assert.equal((await member.does('leave')).code, 0);
  assert.deepEqual(await member.does('join', uri), { connected: true });
  await member.does('picture', LOCAL);
  await member.does('exit', 3);
  assert.deepEqual(await member.ended, { code: 3, signal: null });
});

test('a speaker that does not work does not interrupt the microphone', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const sound = await SoundServer.start(t, { speakers: [] });
  await sound.plugTone('low', 500);
  await sound.plugBrokenSpeaker('broken');
  const member = await openMember(t, { environment: sound.environment });
  await member.does('join', server.uri('meeting'));
  const failure = 'broken does not work';
  await member.does('logged', failure);
  let captured;
  do captured = await sound.captured();
  while (captured.length === 0);
  // It is tried again.
  const { length } = await member.does('log');
  await member.does('logged', failure, length);
  assert.deepEqual(await sound.captured(), captured);
  assert.doesNotMatch(await member.does('log'), /low does not work/);
});

// Settles when so many streams of a sound server's are captured and played.
async function isUsed(sound, count) {
  for (;;) {
    const streams = await Promise.all([sound.captured(), sound.played()]);
    if (streams.every(({ length }) => length === count)) return;
  }
}

test('microphone and speaker are given back at the end of a call, however it ends', async (t) => {
  const room = { room: 'meeting', secret: 's' };
  const server = await startServer(t);
  const administrator = await JanusAdministrator.connect(t, server);
  await administrator.ask({ request: 'create', ...room });
  const sound = await SoundServer.start(t);
  await sound.plugTone('low', 500);
  const member = await openMember(t, { environment: sound.environment });
  const uri = server.uri('meeting');
  const join = async () => {
    await member.does('join', uri);
    await isUsed(sound, 1);
  };

  await t.test('removed by the server', async () => {
    await join();
    await member.does('forget');
    const { participants } = await administrator.ask({ request: 'listparticipants', ...room });
    await administrator.ask({ request: 'kick', ...room, id: participants[0].id });
    assert.equal((await member.does('seen', 'callDisconnect')).code, 410);
    await isUsed(sound, 0);
  });

  await t.test('left', async () => {
    await join();
    await member.does('leave');
    await isUsed(sound, 0);
  });

  await t.test('destroyed', async () => {
    await join();
    await member.does('call', 'destroy');
    await isUsed(sound, 0);
  });
});

test('a process that exits while it previews a camera closes it first', async (t) => {
  const cameras = await CameraServer.start(t);
  await cameras.plug('only');
  const directory = temporaryDirectory(t);
  const member = startProcess(t, './support/processes/room_member.mjs', {
    environment: { PULSE_SERVER: 'unix:/nowhere', ...cameras.environment },
  });
  await member.does('open', directory, SMALL);
  await member.does('picture', LOCAL);
  await member.does('exit', 3);
  assert.deepEqual(await member.ended, { code: 3, signal: null });
  const log = readFileSync(path.join(directory, `${member.pid}tesselclient.log`), 'utf8');
  assert.match(log, /the process ends: the camera is closed\n$/);
});
