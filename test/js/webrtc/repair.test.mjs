// Lost packets of a video are asked for, and sent again.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { startMonitoredServer } from '../../support/janus_monitor.mjs';
import { MediaRelay } from '../../support/media_relay.mjs';
import { LOCAL, remote } from '../../support/streams.mjs';
import { openMember } from '../../support/webrtc_room.mjs';

const CAPTURE = { width: 320, height: 180, maxFPS: 30 };
// The server keeps packets once it knows of a way that takes a millisecond or more.
const DISTANCE_MS = 5;
// In pictures: the server knows it, or has sent again, long before.
const MOST_PICTURES = 900;
const REPEATED = 5;
// With identifiers of its own in each, which decide the order of a report's parts.
const CALLS = 3;

test('lost packets of a video are sent again, in every call', async (t) => {
  const { server, monitor } = await startMonitoredServer(t, { rooms: { meeting: {} } });
  const relay = await MediaRelay.start(t, server);
  relay.distance = DISTANCE_MS;
  const sender = await openMember(t, { capture: CAPTURE });
  const member = await openMember(t, { capture: CAPTURE });
  const sources = { camera: 'card:1', microphone: 'tone:440' };
  const joined = await sender.does('join', server.uri('meeting', sources), { endpointName: 'Ada' });
  assert.deepEqual(joined, { connected: true });
  // Resolves to the first number from `count` on that `measure` resolves to, or to the last one while
  // so many pictures were captured.
  const until = async (count, measure) => {
    let measured = await measure();
    for (let pictures = 0; measured < count && pictures < MOST_PICTURES; pictures += 10) {
      await sender.does('pictures', LOCAL, 10);
      measured = await measure();
    }
    return measured;
  };

  for (let call = 0; call < CALLS; ++call) {
    assert.deepEqual(await member.does('join', relay.uri('meeting', sources)), { connected: true });
    const { csrc: video } = await member.does('picture', remote(0));
    const roundTrip = await until(1, async () => (await monitor.passing('Ada', 'video')).roundTrip);
    assert.ok(roundTrip > 0, 'the video is reported on');

    const { repeatedSsrc } = await monitor.passing('Ada', 'video');
    const before = (await relay.packets('down')).length;
    let count = 0;
    relay.loses = (_, { ssrc }) => ssrc === video && ++count % 4 === 0;
    const repeated = await until(REPEATED, async () => {
      const later = (await relay.packets('down')).slice(before);
      return later.filter(({ ssrc }) => ssrc === repeatedSsrc).length;
    });
    assert.ok(repeated >= REPEATED, `${repeated} packets were sent again`);
    relay.loses = () => false;
    await member.does('leave');
  }
});
