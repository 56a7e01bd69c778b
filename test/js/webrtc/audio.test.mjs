// The audio between the members of a room, identified by the tones that they send, at the speakers
// of a real sound server.

import assert from 'node:assert/strict';
import path from 'node:path';
import { test } from 'node:test';

import { MediaRelay } from '../../support/media_relay.mjs';
import { SoundServer, shareOf } from '../../support/sound_server.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { writeToneClip } from '../../support/tone_clip.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const TONES = [440, 660, 880];

test('everybody hears the tones of the others, and not their own', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const speakers = await Promise.all(TONES.map(() => SoundServer.start(t)));
  const members = await Promise.all(
    speakers.map(({ environment }) => openMember(t, { environment })),
  );
  const uris = TONES.map((hertz) => server.uri('meeting', { microphone: `tone:${hertz}` }));
  await Promise.all(members.map((member, index) => member.does('join', uris[index])));

  const heard = (samples) => TONES.filter((hertz) => shareOf(hertz, samples) > 0.2);
  const others = TONES.map((own) => TONES.filter((hertz) => hertz !== own));
  await Promise.all(
    speakers.map((speaker, index) =>
      speaker.hears(t, (samples) => `${heard(samples)}` === `${others[index]}`),
    ),
  );

  await members[0].does('call', 'muteLocalAudio', true);
  await speakers[1].hears(t, (samples) => `${heard(samples)}` === '880');

  await members[2].does('call', 'setRemoteAudioMute', true);
  await speakers[2].hears(t, (samples) => samples.every((sample) => sample === 0));
});

test('who joins muted is heard after the mute has ended', async (t) => {
  const { server, sound } = await listener(t);
  const speaker = await openMember(t);
  await speaker.does('call', 'muteLocalAudio', true);
  await speaker.does('join', server.uri('meeting', { microphone: 'tone:1000' }));
  await speaker.does('call', 'muteLocalAudio', false);
  await sound.hears(t, (samples) => shareOf(1_000, samples) > 0.9);
});

// A room with somebody who listens to speakers of a sound server.
async function listener(t) {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const sound = await SoundServer.start(t);
  const member = await openMember(t, { environment: sound.environment });
  await member.does('join', server.uri('meeting', { microphone: 'tone:440' }));
  return { server, sound, member };
}

for (const format of [
  { rate: 44_100, channels: 2, bits: 16 },
  { rate: 48_000, channels: 1, bits: 8 },
  { rate: 48_000, channels: 1, bits: 32 },
]) {
  const { rate, channels, bits } = format;
  test(`a sound file of ${channels} x ${bits} bits at ${rate} Hz is heard again and again`, async (t) => {
    const { server, sound } = await listener(t);
    const clip = path.join(temporaryDirectory(t), 'voice.wav');
    writeToneClip(clip, { ...format, hertz: 1_000, seconds: 0.3 });
    const speaker = await openMember(t);
    await speaker.does('join', server.uri('meeting', { microphone: clip }));
    // A piece of half a second is longer than the clip.
    for (let piece = 0; piece < 3; piece++) {
      await sound.hears(t, (samples) => shareOf(1_000, samples) > 0.9);
    }
  });
}

const CLOCK = 48_000;
const PACKETS_PER_SECOND = 50;

// A listener, all of whose media pass a relay, in a room with a tone.
async function relayedListener(t) {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const relay = await MediaRelay.start(t, server);
  const sound = await SoundServer.start(t);
  const member = await openMember(t, { environment: sound.environment });
  await member.does('call', 'muteLocalVideo', true);
  await member.does('join', relay.uri('meeting'));
  const speaker = await openMember(t);
  await speaker.does('join', server.uri('meeting', { microphone: 'tone:1000' }));
  await sound.hears(t, (samples) => shareOf(1_000, samples) > 0.5);
  return { relay, sound };
}

test('what follows a lost packet is not too late to be heard', async (t) => {
  const { relay, sound } = await relayedListener(t);
  let lost = 0;
  // Every second packet, and its repetitions.
  relay.loses = (direction, { timestamp }) => {
    const number = Math.floor((timestamp * PACKETS_PER_SECOND) / CLOCK);
    const isLost = direction === 'down' && number % 2 === 0;
    if (isLost) lost += 1;
    return isLost;
  };
  // What was received before is over then.
  while (lost < 2 * PACKETS_PER_SECOND) await sound.hears(t, () => true);
  await sound.hears(t, (samples) => shareOf(1_000, samples) > 0.5);
});

test('a microphone that hears nothing sends few packets', async (t) => {
  const { relay, sound } = await relayedListener(t);
  // Its silence is all that the listener sends.
  const silence = async () => {
    const packets = await relay.packets('up');
    const ticks = packets.at(-1).timestamp - packets[0].timestamp;
    return { count: packets.length, seconds: (ticks >>> 0) / CLOCK };
  };
  let sent;
  do {
    await sound.hears(t, () => true);
    sent = await silence();
  } while (sent.seconds < 4);
  assert.ok(sent.count < (sent.seconds * PACKETS_PER_SECOND) / 4, JSON.stringify(sent));
});
