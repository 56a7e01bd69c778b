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
// In pictures: that many lost packets are sent again long before.
const MOST_PICTURES = 900;
const REPEATED = 10;

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

async function assertWhole(member, count, size = CAPTURE) {
  const pictures = await member.does('pictures', remote(0), count, CAPTURE);
  assert.deepEqual(
    pictures.map(({ width, height, card }) => [width, height, card?.detail]),
    Array(count).fill([size.width, size.height, 1]),
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

  // Loses packets of the layer with this SSRC on the way to the server, until enough of them have
  // reached the member nevertheless. Whole pictures go on meanwhile.
  const assertRepeated = async (layer, size) => {
    const packetsOf = async (direction, ssrc) =>
      (await relay.packets(direction)).filter((packet) => packet.ssrc === ssrc);
    const up = (await packetsOf('up', layer)).length;
    const down = (await packetsOf('down', received)).length;
    lose(relay, layer, 5);
    let repeated = 0;
    for (let pictures = 0; repeated < REPEATED && pictures < MOST_PICTURES; pictures += 15) {
      await assertWhole(zoe, 15, size);
      const lost = (await packetsOf('up', layer)).slice(up).filter(({ isLost }) => isLost);
      repeated = lost.length - missing((await packetsOf('down', received)).slice(down));
    }
    relay.loses = () => false;
    assert.ok(repeated >= REPEATED, `${repeated} packets were sent again`);
    await assertWhole(zoe, 15, size);
  };

  await t.test('on the way to the server, by the repetitions of its layer', () =>
    assertRepeated(sent, CAPTURE),
  );

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

  await t.test('of a lower layer', async () => {
    const sources = async () => new Set((await relay.packets('up')).map(({ ssrc }) => ssrc));
    const before = await sources();
    const half = { width: 160, height: 90 };
    const wish = { ssrc: received, participantSsrc: received, speakerGroup: 0, priority: 0 };
    const wishes = { VideoStreamInfos: [wish], VideoOccupancyConstraints: [[{ maxquality: 90 }]] };
    const state = { VideoStreamState: wishes };
    await zoe.does('pictureAfter', 'updateVideoStreamsState', state, remote(0), half);
    // Of the lower layer, the only thing that is new, once the server passes it on.
    let lower = [];
    while (lower.length === 0) {
      await zoe.does('pictures', remote(0), 15);
      lower = [...(await sources())].filter((ssrc) => !before.has(ssrc));
    }
    assert.equal(lower.length, 1);
    await assertRepeated(lower[0], half);
  });
});
