// The audio between the members of a room, identified by the tones that they send, at the speakers
// of a real sound server.

import assert from 'node:assert/strict';
import path from 'node:path';
import { test } from 'node:test';

import { MediaRelay } from '../../support/media_relay.mjs';
import { SoundServer, shareOf } from '../../support/sound_server.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { writeSoundClip, writeToneClip } from '../../support/tone_clip.mjs';
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

// A listener, all of whose media pass a relay, in a room with somebody with this microphone.
async function relayedListener(t, microphone = 'tone:1000') {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const relay = await MediaRelay.start(t, server);
  const sound = await SoundServer.start(t);
  const member = await openMember(t, { environment: sound.environment });
  await member.does('call', 'muteLocalVideo', true);
  await member.does('join', relay.uri('meeting'));
  const speaker = await openMember(t);
  await speaker.does('join', server.uri('meeting', { microphone }));
  await sound.hears(t, (samples) => samples.some((sample) => sample !== 0));
  return { relay, sound, member };
}

// Loses each packet that a member would receive of whose number this holds; its repetitions, too.
// Settles when so many are lost.
async function lose(t, { relay, sound }, isLost, count) {
  let lost = 0;
  relay.loses = (direction, { timestamp }) => {
    const number = (timestamp * PACKETS_PER_SECOND) / CLOCK;
    if (direction !== 'down' || !isLost(Math.floor(number))) return false;
    lost += 1;
    return true;
  };
  while (lost < count) await sound.hears(t, () => true);
}

// The longest time, in milliseconds, in which there is no more than a tenth of the loudest sound.
function longestGap(samples) {
  const piece = CLOCK / 100;
  const loudness = [];
  for (let start = 0; start < samples.length; start += piece) {
    loudness.push(Math.max(...samples.subarray(start, start + piece).map(Math.abs)));
  }
  const limit = Math.max(...loudness) / 10;
  let [gap, longest] = [0, 0];
  for (const each of loudness) {
    gap = each > limit ? 0 : gap + 10;
    longest = Math.max(longest, gap);
  }
  return longest;
}

test('lost packets, 5 and 20 % of all, leave no gap in a tone', async (t) => {
  const listener = await relayedListener(t);
  for (const every of [20, 5]) {
    await lose(t, listener, (number) => number % every === 0, PACKETS_PER_SECOND / every);
    await listener.sound.hears(
      t,
      (samples) => longestGap(samples) === 0 && shareOf(1_000, samples) > 0.9,
    );
  }
});

// Tones of a packet's length, one after the other, and a pause: like syllables, for which Opus sends
// repair data, and nothing from which a decoder could conceal what is missing. There is no repair data
// for a syllable's beginning.
const BEGINNING = [300, 400, 600, 800];
const SYLLABLE_TONES = [500, 700, 900, 1_100, 1_300];
const SYLLABLE = [...BEGINNING, ...SYLLABLE_TONES];
const SYLLABLE_SECONDS = 0.3;

function syllable(time) {
  const hertz = SYLLABLE[Math.floor((time % SYLLABLE_SECONDS) * PACKETS_PER_SECOND)];
  return hertz ? Math.sin(2 * Math.PI * hertz * time) / 2 : 0;
}

test('a single lost packet of speech is replaced by the data for its repair', async (t) => {
  const clip = path.join(temporaryDirectory(t), 'syllables.wav');
  const format = { rate: CLOCK, channels: 1, bits: 16, seconds: 10 * SYLLABLE_SECONDS };
  writeSoundClip(clip, format, syllable);
  const listener = await relayedListener(t, clip);
  await listener.member.does('call', 'configureMeetingStats', { enable: true, timerDuration: 100 });
  const sent = Float32Array.from({ length: 2 * SYLLABLE_SECONDS * CLOCK }, (_, index) =>
    syllable(index / CLOCK),
  );
  const isWhole = (samples) =>
    SYLLABLE_TONES.every((hertz) => shareOf(hertz, samples) > 0.7 * shareOf(hertz, sent));
  await listener.sound.hears(t, isWhole, undefined, sent.length);

  // One of the tones is lost each time.
  await lose(t, listener, (number) => number % 5 === 0, 2 * PACKETS_PER_SECOND);
  await listener.sound.hears(t, isWhole, undefined, sent.length);

  const { audio_stats: stats } = await listener.member.does('statistics');
  const { downlink_packet_corrected_count: corrected, downlink_packet_loss_count: lost } = stats;
  assert.ok(corrected > 0 && corrected < lost, JSON.stringify(stats));
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
