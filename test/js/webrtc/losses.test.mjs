// Losses between a member of a room of a real SFU and the server: what repairs the video, seen in the
// decoded pixels and in the packets that pass a relay.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { MediaRelay } from '../../support/media_relay.mjs';
import { LOCAL, remote } from '../../support/streams.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const CAPTURE = { width: 320, height: 180, maxFPS: 30 };
// Without key frames at regular intervals: a picture restarts at one that was asked for.
const ROOM = { fir_freq: 0 };

// Loses every `nth` packet with this SSRC, from now on.
function lose(relay, ssrc, nth) {
  let seen = 0;
  relay.loses = (_, packet) => packet.ssrc === ssrc && ++seen % nth === 0;
}

// How many numbers are missing in the sequence of these packets.
function missing(packets) {
  const numbers = new Set();
  let last = packets[0].sequence;
  for (const { sequence } of packets) {
    const number = last + (((sequence - last) << 16) >> 16);
    last = Math.max(last, number);
    numbers.add(number);
  }
  return Math.max(...numbers) - Math.min(...numbers) + 1 - numbers.size;
}

async function assertWhole(member, count) {
  const pictures = await member.does('pictures', remote(0), count, CAPTURE);
  assert.deepEqual(
    pictures.map(({ card }) => card?.detail),
    Array(count).fill(1),
  );
  return pictures;
}

test('what is lost of a video is repaired', async (t) => {
  const server = await startServer(t, { rooms: { meeting: ROOM } });
  const relay = await MediaRelay.start(t, server);
  const join = async (endpointName, detail) => {
    const member = await openMember(t, { capture: CAPTURE });
    const uri = relay.uri('meeting', { camera: `card:${detail}` });
    assert.deepEqual(await member.does('join', uri, { endpointName }), { connected: true });
    return member;
  };
  const [ada, zoe] = [await join('Ada', 1), await join('Zoë', 2)];
  const { csrc: received } = await zoe.does('picture', remote(0));
  const { csrc: sent } = await ada.does('picture', LOCAL);

  await t.test('on the way to the server, by the repetitions of its layer', async () => {
    lose(relay, sent, 20);
    await assertWhole(zoe, 90);
    relay.loses = () => false;
    await assertWhole(zoe, 15);
    const up = (await relay.packets('up')).filter(({ ssrc }) => ssrc === sent);
    const down = (await relay.packets('down')).filter(({ ssrc }) => ssrc === received);
    const lost = up.filter(({ isLost }) => isLost).length;
    // A packet may be repeated too late on a busy machine.
    assert.ok(lost > 0 && missing(down) < lost / 2, `${missing(down)} of ${lost} are missing`);
  });

  await t.test('on the way to a member, who asks for it several times a second', async () => {
    lose(relay, received, 10);
    const { card: first } = (await assertWhole(zoe, 30)).at(-1);
    const before = await relay.controls('up', received);
    const seconds = 5;
    for (let number = 0; number < first.number + 30 * seconds;) {
      number = (await assertWhole(zoe, 1))[0].card.number;
    }
    const asked = (await relay.controls('up', received)) - before;
    assert.ok(asked > 1.5 * seconds, `${asked} times`);
  });
});
