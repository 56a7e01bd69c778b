// Which remote videos arrive, and how well: what updateVideoStreamsState asks for in a room of a real
// SFU is seen in the decoded pixels and in the bytes that the server passes on.

import assert from 'node:assert/strict';
import { test } from 'node:test';
import { isDeepStrictEqual } from 'node:util';

import { startMonitoredServer } from '../../support/janus_monitor.mjs';
import { LOCAL, remote } from '../../support/streams.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const CAPTURE = { width: 640, height: 360 };
// Without key frames at regular intervals: a picture restarts at one that was asked for.
const ROOM = { fir_freq: 0 };

const sizeOf = ({ width, height }) => [width, height];

// Wishes for the streams of these sources, the larger `priority` the more, with one row of
// constraints for each number of tiles.
const wishes = (streams, VideoOccupancyConstraints = []) => ({
  VideoStreamState: {
    VideoStreamInfos: streams.map(({ csrc, priority = 0 }) => ({
      ...{ ssrc: csrc, participantSsrc: csrc, speakerGroup: 0, priority },
    })),
    VideoOccupancyConstraints,
  },
});

// Joins the room as `name`, with a test card of this detail as the camera.
async function join(t, server, name, detail, parameters) {
  const member = await openMember(t);
  const uri = server.uri('meeting', { camera: `card:${detail}` });
  const answer = await member.does('join', uri, { endpointName: name, ...parameters });
  assert.deepEqual(answer, { connected: true });
  return member;
}

test('a stream without a tile is not sent, and returns with whole pictures', async (t) => {
  const { server, monitor } = await startMonitoredServer(t, { rooms: { meeting: ROOM } });
  await join(t, server, 'Ada', 1);
  const zoe = await join(t, server, 'Zoë', 2);
  const { csrc } = await zoe.does('picture', remote(0));

  for (let time = 0; time < 2; time++) {
    await zoe.does('forget');
    await zoe.does('call', 'updateVideoStreamsState', wishes([]));
    await zoe.does('cleared', remote(0));
    await zoe.does('seen', 'streamUpdated', { ...remote(0), csrc });
    await monitor.standsStill('Ada', 'video', zoe);

    const { card } = await zoe.does(
      'pictureAfter',
      ...['updateVideoStreamsState', wishes([{ csrc }]), remote(0), CAPTURE],
    );
    assert.equal(card?.detail, 1);
    const pictures = await zoe.does('pictures', remote(0), 10);
    assert.deepEqual(
      pictures.map((picture) => picture.card?.detail),
      Array(10).fill(1),
    );
  }
});

test('the streams with the highest priorities get the tiles, also among newcomers', async (t) => {
  const server = await startServer(t, { rooms: { meeting: ROOM } });
  const zoe = await join(t, server, 'Zoë', 9);
  const sources = [];
  for (const index of [0, 1]) {
    await join(t, server, `${index}`, index);
    sources.push((await zoe.does('picture', remote(index))).csrc);
  }
  const place = (...priorities) =>
    zoe.does(
      'call',
      'updateVideoStreamsState',
      // One row: one tile.
      wishes(
        priorities.map((priority, index) => ({ csrc: sources[index], priority })),
        [[]],
      ),
    );
  for (const [priorities, shown] of [
    [[1, 2], 1],
    [[2, 1], 0],
    [[5, 5], 0],
  ]) {
    await place(...priorities);
    await zoe.does('cleared', remote(1 - shown));
    const { card } = await zoe.does('picture', remote(shown));
    assert.equal(card?.detail, shown);
  }

  await join(t, server, 'newcomer', 3);
  await zoe.does('seen', 'streamAdded', remote(2));
  await zoe.does('pictures', remote(0), 30);
  assert.equal(await zoe.does('hasPicture', remote(2)), false);
});

for (const videocodec of ['vp8', 'h264']) {
  test(`quality and frame rate are what the tile asks for in a room of ${videocodec}`, async (t) => {
    const server = await startServer(t, { rooms: { meeting: { ...ROOM, videocodec } } });
    await join(t, server, 'Ada', 1);
    const zoe = await join(t, server, 'Zoë', 2);
    const { csrc } = await zoe.does('picture', remote(0));
    const shows = async (method, argument, size) => {
      const picture = await zoe.does('pictureAfter', method, argument, remote(0), size);
      assert.equal(picture.card?.detail, 1);
    };
    const limit = (constraints) => wishes([{ csrc }], [[constraints]]);

    for (const [maxquality, size] of [
      [180, { width: 320, height: 180 }],
      [90, { width: 160, height: 90 }],
      [45, { width: 80, height: 45 }],
      [720, CAPTURE],
    ]) {
      await zoe.does('forget');
      await shows('updateVideoStreamsState', limit({ maxquality }), size);
      await zoe.does('seen', 'streamUpdated', { ...remote(0), csrc });
      for (const picture of await zoe.does('pictures', remote(0), 5)) {
        assert.deepEqual(sizeOf(picture), [size.width, size.height]);
      }
    }

    // How many are left out is up to how many the machine captures, but of more than three per second
    // some are.
    await zoe.does('call', 'updateVideoStreamsState', limit({ maxfps: 3 }));
    // What was on its way is over after the first ones.
    const [, , first, , last] = await zoe.does('pictures', remote(0), 5);
    const captured = last.card.number - first.card.number;
    assert.ok(captured > last.frameId - first.frameId, `${captured} pictures were captured`);

    await zoe.does('call', 'updateVideoStreamsState', limit({}));
    const ceiling = JSON.stringify({ maxVOQualityIndex: 2 });
    await shows('updateConfigData', { configData: ceiling }, { width: 320, height: 180 });
  });
}

test('the server passes on the lowest layer that is enough, and only layers that it passes on are sent', async (t) => {
  const { server, monitor } = await startMonitoredServer(t, { rooms: { meeting: ROOM } });
  await join(t, server, 'Ada', 1);
  const zoe = await join(t, server, 'Zoë', 2);
  const { csrc } = await zoe.does('picture', remote(0));
  // Whole pictures go on until the server has passed on this layer of Ada's video.
  const passesOn = async (layer) => {
    for (;;) {
      const pictures = await zoe.does('pictures', remote(0), 5, CAPTURE);
      assert.deepEqual(
        pictures.map(({ card }) => card?.detail),
        Array(5).fill(1),
      );
      if ((await monitor.passedOnLayer('Ada')) === layer) return;
    }
  };
  // Resolves when the server has received nothing of the other layers for one second.
  const othersStandStill = async (layer) => {
    for (let before; ;) {
      const others = (await monitor.receivedLayers('Ada')).filter((_, index) => index !== layer);
      if (isDeepStrictEqual(others, before)) return others;
      before = others;
      await zoe.does('pictures', LOCAL, 30);
    }
  };

  await passesOn(2);
  assert.deepEqual(await othersStandStill(2), [0, 0]);
  // 640x360 is sent as 360, 180 and 90.
  for (const [limits, layer] of [
    [{ maxquality: 180 }, 1],
    [{ maxquality: 90 }, 0],
    [{ maxquality: 360 }, 2],
    [{ maxquality: 45 }, 0],
    [{}, 2],
  ]) {
    await zoe.does('call', 'updateVideoStreamsState', wishes([{ csrc }], [[limits]]));
    await passesOn(layer);
    await othersStandStill(layer);
  }
});

test('layers that do not fit into the bandwidth of the call are not sent', async (t) => {
  const { server, monitor } = await startMonitoredServer(t, { rooms: { meeting: ROOM } });
  const ada = await join(t, server, 'Ada', 1, { maxBandwidth: 160_000 });
  const zoe = await join(t, server, 'Zoë', 2);
  for (const { width, height, card } of await zoe.does('pictures', remote(0), 30, CAPTURE)) {
    assert.deepEqual([width, height, card?.detail], [320, 180, 1]);
  }
  const [lowest, middle, highest] = await monitor.receivedLayers('Ada');
  assert.ok(middle > 0);
  assert.deepEqual([lowest, highest], [0, 0]);

  await ada.does('call', 'configureMeetingStats', { enable: true, timerDuration: 500 });
  let sent;
  do [sent] = (await ada.does('statistics')).video_send_stats;
  while (!sent?.fps);
  assert.deepEqual([sent.width, sent.height], [320, 180]);
  assert.ok(sent.total_bitrate_bps > 0);
});
