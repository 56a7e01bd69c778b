// The statistics of a meeting in a room of a real SFU. Each figure is held against a second source: the
// packets that pass a relay between the member and the server, what the server says of itself, or the
// picture and the tone that are sent.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { startMonitoredServer } from '../../support/janus_monitor.mjs';
import { MediaRelay } from '../../support/media_relay.mjs';
import { SoundServer } from '../../support/sound_server.mjs';
import { LOCAL, remote } from '../../support/streams.mjs';
import { openMember } from '../../support/webrtc_room.mjs';

const CAPTURE = { width: 320, height: 180, maxFPS: 15 };
const WINDOW_MS = 500;
// By how much the relay may count a packet earlier or later than the engine.
const APART_MS = 500;
const STEP_MS = 10;
// Between two packets of audio: a packet at the edge of a window may be in it or not.
const EDGE_MS = 20;
// Of the room. A REMB has it exactly, being a multiple of 8.
const GRANTED_RATE = 1_234_000;
// A sine of 0.3 is -13.5 dB.
const TONE_LEVEL = 78;
const AUDIO_CLOCK_PER_MS = 48;

const sum = (numbers) => numbers.reduce((all, each) => all + each, 0);
const payloadOf = (packets) => sum(packets.map(({ payloadBytes }) => payloadBytes));
const bitRateOf = (packets) => (sum(packets.map(({ bytes }) => bytes)) * 8 * 1000) / WINDOW_MS;
const frameRateOf = (packets) =>
  (packets.filter(({ endsFrame }) => endsFrame).length * 1000) / WINDOW_MS;
const lostOf = (packets) => packets.filter(({ isLost }) => isLost).length;

// The jitter of what left the relay, in milliseconds, as receivers of RTP compute it.
function jitterOf(packets) {
  let jitter = 0;
  for (let index = 1; index < packets.length; ++index) {
    const [before, after] = [packets[index - 1], packets[index]];
    const sent = (after.timestamp - before.timestamp) / AUDIO_CLOCK_PER_MS;
    jitter += (Math.abs(after.leftAt - before.leftAt - sent) - jitter) / 16;
  }
  return jitter;
}

// Holds `figure` against what `measure` makes of the packets of a window that ended about at `end`, or
// of all packets until about then.
function assertMeasured(figure, packets, end, measure, milliseconds = WINDOW_MS) {
  const measured = [];
  for (let stop = end - APART_MS; stop <= end + APART_MS; stop += STEP_MS) {
    for (const length of [milliseconds - EDGE_MS, milliseconds + EDGE_MS]) {
      measured.push(measure(packets.filter(({ at }) => at > stop - length && at <= stop)));
    }
  }
  const [least, most] = [Math.min(...measured), Math.max(...measured)];
  // Rates are whole numbers.
  const isMeasured = figure >= Math.floor(least) && figure <= Math.ceil(most);
  assert.ok(most > 0 && isMeasured, `${figure} is not from ${least} to ${most}`);
}

// A member of a room, all of whose media pass a relay, and another one.
async function meet(t, { capture = CAPTURE, environment } = {}) {
  const { server, monitor } = await startMonitoredServer(t, {
    rooms: { meeting: { bitrate: GRANTED_RATE } },
  });
  const relay = await MediaRelay.start(t, server);
  const members = await Promise.all([
    openMember(t, { capture, environment }),
    openMember(t, { capture }),
  ]);
  const names = ['Ada', 'Ben'];
  for (const [index, each] of members.entries()) {
    const sources = { camera: `card:${index}`, microphone: 'tone:440' };
    const uri = [relay, server][index].uri('meeting', sources);
    const answer = await each.does('join', uri, { endpointName: names[index] });
    assert.deepEqual(answer, { connected: true });
  }
  const [member] = members;
  const [{ csrc: received }] = await Promise.all(
    members.map((each) => each.does('picture', remote(0))),
  );
  const { csrc: sent } = await member.does('picture', LOCAL);
  await member.does('call', 'configureMeetingStats', { enable: true, timerDuration: WINDOW_MS });

  const video = { up: sent, down: received };
  // Nothing is sent again before something was lost.
  const audio = {};
  for (const direction of ['up', 'down']) {
    const packets = await relay.packets(direction);
    audio[direction] = packets.find(({ ssrc }) => ssrc !== video[direction]).ssrc;
  }
  // The packets of one SSRC.
  const packets = async (direction, ssrc) =>
    (await relay.packets(direction)).filter((each) => each.ssrc === ssrc);
  return { monitor, relay, member, video, audio, packets };
}

// The statistics of the last of so many windows to come.
async function afterWindows(member, count) {
  let stats;
  for (let window = 0; window < count; ++window) stats = await member.does('statistics');
  return stats;
}

// The first statistics to come of which `holds` is true.
async function statisticsWhere(member, holds) {
  let stats;
  do stats = await member.does('statistics');
  while (!holds(stats));
  return stats;
}

test('the figures are those of what is sent and received', async (t) => {
  const sound = await SoundServer.start(t);
  const { relay, member, video, audio, packets } = await meet(t, sound);
  const isAudio = ({ ssrc }) => ssrc === audio.up || ssrc === audio.down;
  const delayed = { up: 0, down: 0 };
  relay.delays = (direction, packet) =>
    isAudio(packet) && ++delayed[direction] % 2 === 0 ? 15 : 0;
  const stats = await afterWindows(member, 4);
  const { at: end, meetingStats, audio_stats } = stats;
  // What passes the relay after the window's end is needed to compare.
  await afterWindows(member, 1);

  for (const [name, list, direction] of [
    ['sent', stats.video_send_stats, 'up'],
    ['received', stats.video_recv_stats, 'down'],
  ]) {
    await t.test(`of the ${name} video`, async () => {
      assert.equal(list.length, 1);
      const [{ ssrc, width, height, ...figures }] = list;
      assert.deepEqual([ssrc, width, height], [video[direction], CAPTURE.width, CAPTURE.height]);
      const passed = await packets(direction, ssrc);
      assertMeasured(figures.total_bitrate_bps, passed, end, bitRateOf);
      assertMeasured(figures.fps, passed, end, frameRateOf);
      assert.deepEqual([figures.fraction_loss, figures.cumulative_loss], [0, 0]);
    });
  }

  await t.test('of everything', async () => {
    const { total_outbound_bps, total_inbound_bps, process_cpu, system_cpu } = meetingStats;
    assertMeasured(total_outbound_bps, await relay.packets('up'), end, bitRateOf);
    assertMeasured(total_inbound_bps, await relay.packets('down'), end, bitRateOf);
    assert.equal(meetingStats.outbound_bwe_bps, GRANTED_RATE);
    assert.ok(process_cpu <= system_cpu && system_cpu <= 100, `${process_cpu} ${system_cpu}`);
  });

  await t.test('of the audio', async () => {
    for (const [name, direction] of [
      ['uplink', 'up'],
      ['downlink', 'down'],
    ]) {
      const passed = await packets(direction, audio[direction]);
      assertMeasured(audio_stats[`${name}_payload_bytes`], passed, end, payloadOf, Infinity);
      const jitter = jitterOf(passed.filter(({ leftAt }) => leftAt < end));
      const seen = audio_stats[`${name}_jitter`];
      assert.ok(seen > jitter / 2 && seen < 2 * jitter, `${name}: ${seen}, relay: ${jitter}`);
    }
    // What arrives too late is not heard, which lowers the level of that moment.
    relay.delays = () => 0;
    const isTone = (level) => Math.abs(level - TONE_LEVEL) <= 1;
    await statisticsWhere(
      member,
      ({ audio_stats: { transmit_level, output_level } }) =>
        transmit_level === TONE_LEVEL && isTone(output_level),
    );
  });

  await t.test('and what is muted has none', async () => {
    await member.does('call', 'muteLocalAudio', true);
    await member.does('call', 'muteLocalVideo', true);
    await member.does('call', 'setRemoteAudioMute', true);
    const muted = await afterWindows(member, 3);
    const [{ total_bitrate_bps, fps }] = muted.video_send_stats;
    assert.deepEqual([total_bitrate_bps, fps, muted.meetingStats.total_outbound_bps], [0, 0, 0]);
    const { transmit_level, output_level } = muted.audio_stats;
    assert.deepEqual([transmit_level, output_level], [0, 0]);
  });
});

test('losses are counted, and what repairs them', async (t) => {
  // A packet that follows soon shows that one is missing.
  const { monitor, relay, member, video, audio, packets } = await meet(t, {
    capture: { ...CAPTURE, maxFPS: 30 },
  });
  // Loses a fourth of the packets with these SSRCs.
  const lose = (...ssrcs) => {
    const seen = new Map();
    relay.loses = (_, { ssrc }) => {
      seen.set(ssrc, (seen.get(ssrc) ?? 0) + 1);
      return ssrcs.includes(ssrc) && seen.get(ssrc) % 4 === 0;
    };
  };
  const lost = async (direction, ssrc) => lostOf(await packets(direction, ssrc));
  // What arrives too late counts as lost, too: on a busy machine this happens now and then.
  const assertLost = (count, least) =>
    assert.ok(least > 0 && count >= least && count <= least * 1.25, `${count} instead of ${least}`);

  lose(video.up, video.down, audio.down);
  const during = await afterWindows(member, 4);
  lose();
  // The server reports once a second.
  const after = await afterWindows(member, 4);

  await t.test('of the sent video', async () => {
    const [{ fraction_loss, retransmit_bitrate_bps, total_bitrate_bps }] = during.video_send_stats;
    assert.ok(fraction_loss > 0.1 && fraction_loss < 0.5, `${fraction_loss}`);
    const repeated = (await relay.packets('up')).filter(
      ({ ssrc }) => ssrc !== video.up && ssrc !== audio.up,
    );
    assertMeasured(retransmit_bitrate_bps, repeated, during.at, bitRateOf);
    assertMeasured(
      total_bitrate_bps,
      [...repeated, ...(await packets('up', video.up))],
      during.at,
      bitRateOf,
    );
    const [{ cumulative_loss }] = after.video_send_stats;
    const { lost: missed } = await monitor.reception('Ada', 'video');
    assert.deepEqual([cumulative_loss, missed], Array(2).fill(await lost('up', video.up)));
  });

  await t.test('of what is received', async () => {
    const [{ cumulative_loss, rtx_recovered_packets }] = after.video_recv_stats;
    assertLost(cumulative_loss, await lost('down', video.down));
    const repeated = (await relay.packets('down')).filter(
      ({ ssrc }) => ssrc !== video.down && ssrc !== audio.down,
    );
    // Whether one is sent again is up to the moment at which it is asked for.
    assert.ok(rtx_recovered_packets <= repeated.length, `${rtx_recovered_packets}`);
    assertLost(after.audio_stats.downlink_packet_loss_count, await lost('down', audio.down));
    assert.ok(during.meetingStats.instant_inbound_loss > 0.1);
    assert.ok(during.meetingStats.instant_outbound_loss > 0.01);
    assert.equal(after.meetingStats.instant_inbound_loss, 0);
  });

  await t.test('and nothing repairs without repetitions', async () => {
    const isRepeated = (direction, { ssrc }) =>
      direction === 'down' && ssrc !== video.down && ssrc !== audio.down;
    relay.loses = isRepeated;
    // What was repeated before has arrived.
    const [before] = (await afterWindows(member, 2)).video_recv_stats;
    lose(video.down, audio.up);
    const { loses } = relay;
    relay.loses = (...packet) => loses(...packet) || isRepeated(...packet);
    await afterWindows(member, 3);
    lose();
    const last = await afterWindows(member, 4);
    const [received] = last.video_recv_stats;
    assertLost(received.cumulative_loss, await lost('down', video.down));
    const missed = received.cumulative_loss - before.cumulative_loss;
    assert.ok(missed > 0);
    // A packet that comes by itself, but after it was asked for, counts as one that was sent again.
    const recovered = received.rtx_recovered_packets - before.rtx_recovered_packets;
    assert.ok(recovered < missed / 2, `${recovered} of ${missed}`);
    // The repetitions of audio are none of the video's.
    assert.equal(last.audio_stats.uplink_packet_loss_count, await lost('up', audio.up));
    assert.equal(last.video_send_stats[0].retransmit_bitrate_bps, 0);
  });
});
