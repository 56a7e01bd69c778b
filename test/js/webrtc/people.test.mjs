// The participants event, the media stream state and the bandwidth limit in a room of a real SFU.

import assert from 'node:assert/strict';
import { randomFillSync } from 'node:crypto';
import { writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { JanusAdministrator } from '../../support/janus_administrator.mjs';
import { startMonitoredServer } from '../../support/janus_monitor.mjs';
import { SoundServer, shareOf } from '../../support/sound_server.mjs';
import { LOCAL, remote } from '../../support/streams.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const ROOMS = { rooms: { meeting: {} } };
const TONE = 440;
const EVERYTHING = {
  ...{ contentStreamEnabled: true, incomingAudioEnabled: true, incomingVideoEnabled: true },
  ...{ outgoingAudioMuted: false, outgoingVideoMuted: false },
};

// Joins the room as `name`, with a test card of this detail as the camera.
async function join(t, server, name, { detail, microphone, environment, ...overrides }) {
  const member = await openMember(t, { environment });
  const uri = server.uri('meeting', {
    camera: `card:${detail}`,
    ...(microphone && { microphone }),
  });
  const answer = await member.does('join', uri, { endpointName: name, ...overrides });
  assert.deepEqual(answer, { connected: true });
  return member;
}

test('participants are reported with name, guid, mutes and speech', async (t) => {
  const server = await startServer(t, ROOMS);
  const ada = await join(t, server, 'Ada', {
    ...{ detail: 1, microphone: `tone:${TONE}`, meetingGuid: 'guid of Ada' },
  });
  const zoe = await join(t, server, 'Zoë', {
    ...{ detail: 2, mediaStreamState: { ...EVERYTHING, outgoingAudioMuted: true } },
  });
  const speaking = { audioMuted: false, speaking: true, presenting: false };
  const { csrc } = await zoe.does('picture', remote(0));
  const person = await zoe.does('knows', 'Ada', { ...speaking, videoMuted: false, csrc });
  assert.deepEqual([person.stream, person.guid], [remote(0), 'guid of Ada']);
  const self = await ada.does('knows', 'Ada', speaking);
  assert.deepEqual([self.stream, self.guid], [LOCAL, 'guid of Ada']);
  await ada.does('knows', 'Zoë', { audioMuted: true, videoMuted: false, speaking: false });

  await ada.does('call', 'muteLocalAudio', true);
  const silent = { audioMuted: true, speaking: false };
  await Promise.all([ada, zoe].map((member) => member.does('knows', 'Ada', silent)));
  await ada.does('call', 'muteLocalAudio', false);
  await Promise.all([ada, zoe].map((member) => member.does('knows', 'Ada', speaking)));
});

test('a participant who joins with muted video has no picture until it is unmuted', async (t) => {
  const server = await startServer(t, ROOMS);
  const zoe = await join(t, server, 'Zoë', { detail: 2 });
  const ada = await join(t, server, 'Ada', {
    ...{ detail: 1, mediaStreamState: { ...EVERYTHING, outgoingVideoMuted: true } },
  });
  await zoe.does('knows', 'Ada', { videoMuted: true });
  await zoe.does('seen', 'streamAdded', remote(0));
  // One second.
  await ada.does('pictures', remote(0), 30);
  assert.equal(await zoe.does('hasPicture', remote(0)), false);

  await ada.does('call', 'updateMediaStreamState', EVERYTHING);
  const { card } = await zoe.does('picture', remote(0));
  assert.equal(card?.detail, 1);
});

test('a participant whom the room mutes is muted until the room unmutes it or the call ends', async (t) => {
  const room = 'meeting';
  const server = await startServer(t, { rooms: { [room]: { secret: 's' } } });
  const zoe = await join(t, server, 'Zoë', { detail: 2 });
  const ada = await join(t, server, 'Ada', { detail: 1, microphone: `tone:${TONE}` });
  await zoe.does('picture', remote(0));
  const administrator = await JanusAdministrator.connect(t, server);
  const { participants } = await administrator.ask({ request: 'listparticipants', room });
  const { id } = participants.find(({ display }) => display === 'Ada');
  const moderate = (mid, mute) =>
    administrator.ask({ request: 'moderate', room, secret: 's', id, mid, mute });
  const answered = (mediaType, muted) => ada.does('seen', 'mediaMuteState', { mediaType, muted });

  await moderate('video0', true);
  await answered('video', true);
  await zoe.does('knows', 'Ada', { videoMuted: true, audioMuted: false, speaking: true });
  await zoe.does('cleared', remote(0));
  await ada.does('cleared', LOCAL);
  await ada.does('forget');
  await ada.does('call', 'muteLocalVideo', false);
  await answered('video', true);
  assert.equal(await ada.does('hasPicture', LOCAL), false);
  await moderate('video0', false);
  await answered('video', false);
  const { card } = await zoe.does('picture', remote(0));
  assert.equal(card?.detail, 1);

  await moderate('audio1', true);
  await answered('audio', true);
  await zoe.does('knows', 'Ada', { audioMuted: true, speaking: false, videoMuted: false });
  await ada.does('forget');
  await ada.does('leave');
  await answered('audio', false);
});

test('disabled incoming video is not sent, and restarts with whole pictures', async (t) => {
  const { server, monitor } = await startMonitoredServer(t, ROOMS);
  await join(t, server, 'Ada', { detail: 1, microphone: `tone:${TONE}` });
  const zoe = await join(t, server, 'Zoë', { detail: 2 });
  const { csrc } = await zoe.does('picture', remote(0));

  for (let time = 0; time < 3; time++) {
    await zoe.does('forget');
    const without = { ...EVERYTHING, incomingVideoEnabled: false };
    await zoe.does('call', 'updateMediaStreamState', without);
    await zoe.does('cleared', remote(0));
    await zoe.does('seen', 'streamUpdated', { ...remote(0), csrc });
    const heard = await monitor.passedOn('Ada', 'audio');
    await monitor.standsStill('Ada', 'video', zoe);
    const heardThen = await monitor.passedOn('Ada', 'audio');
    assert.ok(heardThen.bytes > heard.bytes, 'audio is still sent');

    await zoe.does('call', 'updateMediaStreamState', EVERYTHING);
    const pictures = await zoe.does('pictures', remote(0), 10);
    assert.deepEqual(
      pictures.map(({ card }) => card?.detail),
      Array(10).fill(1),
    );
  }
});

test('video and audio that are disabled at the join are sent only after they are enabled', async (t) => {
  const { server, monitor } = await startMonitoredServer(t, ROOMS);
  const speaker = await SoundServer.start(t);
  await join(t, server, 'Ada', { detail: 1, microphone: `tone:${TONE}` });
  const nothing = { ...EVERYTHING, incomingVideoEnabled: false, incomingAudioEnabled: false };
  const zoe = await join(t, server, 'Zoë', {
    ...{ detail: 2, environment: speaker.environment, mediaStreamState: nothing },
  });
  await zoe.does('knows', 'Ada', { speaking: false, videoMuted: false });
  for (const medium of ['audio', 'video']) {
    await monitor.standsStill('Ada', medium, zoe);
    assert.equal((await monitor.passedOn('Ada', medium)).bytes, 0);
  }
  assert.equal(await zoe.does('hasPicture', remote(0)), false);

  await zoe.does('call', 'updateMediaStreamState', EVERYTHING);
  const { card } = await zoe.does('picture', remote(0));
  assert.equal(card?.detail, 1);
  await speaker.hears(t, (samples) => shareOf(TONE, samples) > 0.9);
  await zoe.does('knows', 'Ada', { speaking: true });

  const silent = { ...EVERYTHING, incomingAudioEnabled: false };
  await zoe.does('call', 'updateMediaStreamState', silent);
  await monitor.standsStill('Ada', 'audio', zoe);
  await speaker.hears(t, (samples) => samples.every((sample) => sample === 0));
  await zoe.does('knows', 'Ada', { speaking: false, audioMuted: false });
  await zoe.does('pictures', remote(0), 10);
});

// Writes a clip that compresses badly.
function writeNoise(file, { width, height, frames }) {
  const frame = Buffer.alloc((width * height * 3) / 2);
  const pieces = [Buffer.from(`YUV4MPEG2 W${width} H${height} F30:1 C420\n`)];
  for (let number = 0; number < frames; number++) {
    const noise = randomFillSync(frame).map((byte) => 64 + (byte & 127));
    pieces.push(Buffer.from('FRAME\n'), noise);
  }
  writeFileSync(file, Buffer.concat(pieces));
}

for (const videocodec of ['vp8', 'h264']) {
  test(`the video stays below the maximum bandwidth of the call in a room of ${videocodec}`, async (t) => {
    const { server, monitor } = await startMonitoredServer(t, {
      rooms: { meeting: { videocodec } },
    });
    const camera = path.join(temporaryDirectory(t), 'noise.y4m');
    writeNoise(camera, { width: 320, height: 180, frames: 10 });
    // Bits per second that the server receives in three seconds.
    const rateOf = async (name, maxBandwidth) => {
      const member = await openMember(t, { capture: { width: 320, height: 180, maxFPS: 30 } });
      const uri = server.uri('meeting', { camera });
      await member.does('join', uri, { endpointName: name, maxBandwidth });
      // The encoder's rate control needs one second.
      await member.does('pictures', LOCAL, 30);
      const before = await monitor.received(name, 'video');
      await member.does('pictures', LOCAL, 90);
      const after = await monitor.received(name, 'video');
      await member.does('leave');
      return (8 * (after.bytes - before.bytes)) / (after.seconds - before.seconds);
    };
    const limit = 160_000;
    const [narrow, wide] = [await rateOf('narrow', limit), await rateOf('wide', 0)];
    assert.ok(narrow < 1.25 * limit, `${narrow} bits per second`);
    assert.ok(wide > 2 * narrow, `${wide} bits per second without a limit, ${narrow} with one`);
  });
}
