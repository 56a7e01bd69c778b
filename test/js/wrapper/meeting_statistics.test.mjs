// The meeting's statistics and the attributes that it requires.

import assert from 'node:assert/strict';
import { after, beforeEach, test } from 'node:test';

import {
  assertCalls,
  assertRefused,
  testArgument,
  testEngineFailures,
  testPrintsNothing,
  testRecord,
  testSetterThrows,
} from '../../support/scripted/method_tests.mjs';
import { records } from '../../support/scripted/records.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';
import { goodArguments } from '../../support/scripted/good_arguments.mjs';
import { construct } from '../../support/scripted/wrapper_kit.mjs';

const wrapper = construct();

beforeEach(engine.reset);
after(() => wrapper.destroy());

// ---- configureMeetingStats

const args = goodArguments.configureMeetingStats;

testArgument({ wrapper, method: 'configureMeetingStats', type: 'Object', args });
testRecord({
  method: 'configureMeetingStats',
  record: records.configureMeetingStats,
  good: () => args()[0],
  call: (params) => wrapper.configureMeetingStats(params),
});
testEngineFailures({
  wrapper,
  method: 'configureMeetingStats',
  args,
  operations: ['ConfigureMeetingStats'],
});

for (const [timerDuration, expected] of [
  [1000, 1000],
  [0, 0],
  [65535, 65535],
  [65536, 0],
  [70000, 4464],
  [-1, 65535],
  [-65537, 65535],
  [999.9, 999],
  [2147483648, 0],
  [4294967297, 1],
  [NaN, 0],
  [Infinity, 0],
]) {
  test(`configureMeetingStats passes a duration of ${timerDuration} on as ${expected}`, () => {
    for (const enable of [true, false]) {
      assertCalls(() => wrapper.configureMeetingStats({ enable, timerDuration }), {
        operation: 'ConfigureMeetingStats',
        args: { enable, timerDuration: expected },
      });
    }
  });
}

test('configureMeetingStats reports a missing timerDuration', () => {
  assertRefused(
    () => wrapper.configureMeetingStats({ enable: true }),
    TypeError,
    'Missing property timerDuration on object configureMeetingStats',
  );
});

// ---- getMeetingStats

// Every field has a different value, so that exchanged fields are detected.
const videoStats = (base) => ({
  width: base + 1,
  height: base + 2,
  totalBitrateBps: base + 3,
  fractionLost: base + 0.4,
  cumulativeLost: base + 5,
  delayMs: base + 6,
  fps: base + 7,
  rtxRecoveredPackets: base + 8,
  fecRecoveredPackets: base + 9,
  retransmitBitrateBps: base + 10,
});

const MEETING_STATS = {
  systemCpu: 1,
  processCpu: 2,
  inboundBweBps: 3,
  outboundBweBps: 4,
  totalInboundBps: 5,
  totalOutboundBps: 6,
  sendTmmbrBitrate: 7,
  instantInboundLoss: 0.5,
  instantOutboundLoss: 0.25,
  videoSend: [
    [4000000000, videoStats(100)],
    [20, videoStats(200)],
  ],
  contentSend: videoStats(300),
  videoReceive: [
    [300, videoStats(400)],
    [7, videoStats(500)],
  ],
  contentReceive: videoStats(600),
  audio: {
    transmitLevel: 1.5,
    outputLevel: 2.5,
    snr: 3.5,
    downlinkJitter: 11,
    uplinkJitter: 12,
    downlinkPacketLossCount: 13,
    uplinkPacketLossCount: 14,
    downlinkPacketCorrectedCount: 15,
    uplinkPacketCorrectedCount: 16,
    downlinkPayloadBytes: 17,
    uplinkPayloadBytes: 18,
  },
};

const sentVideo = (ssrc, base) => [
  ['ssrc', ssrc],
  ['width', base + 1],
  ['height', base + 2],
  ['total_bitrate_bps', base + 3],
  ['fraction_loss', base + 0.4],
  ['cumulative_loss', base + 5],
  ['pacer_delay_ms', base + 6],
  ['fps', base + 7],
  ['retransmit_bitrate_bps', base + 10],
];

const receivedVideo = (ssrc, base) => [
  ['ssrc', ssrc],
  ['width', base + 1],
  ['height', base + 2],
  ['total_bitrate_bps', base + 3],
  ['fraction_loss', base + 0.4],
  ['cumulative_loss', base + 5],
  ['target_delay_ms', base + 6],
  ['rtx_recovered_packets', base + 8],
  ['fec_recovered_packets', base + 9],
  ['fps', base + 7],
];

const EXPECTED = [
  [
    'meetingStats',
    [
      ['system_cpu', 1],
      ['process_cpu', 2],
      ['inbound_bwe_bps', 3],
      ['outbound_bwe_bps', 4],
      ['total_inbound_bps', 5],
      ['total_outbound_bps', 6],
      ['send_tmmbr_bitrate', 7],
      ['instant_inbound_loss', 0.5],
      ['instant_outbound_loss', 0.25],
    ],
  ],
  ['video_send_stats', [sentVideo(20, 200), sentVideo(4000000000, 100)]],
  [
    'content_send_stats',
    [
      ['width', 301],
      ['height', 302],
      ['total_bitrate_bps', 303],
      ['pacer_delay_ms', 306],
      ['fps', 307],
      ['retransmit_bitrate_bps', 310],
    ],
  ],
  ['video_recv_stats', [receivedVideo(7, 500), receivedVideo(300, 400)]],
  [
    'content_recv_stats',
    [
      ['width', 601],
      ['height', 602],
      ['total_bitrate_bps', 603],
      ['target_delay_ms', 606],
      ['rtx_recovered_packets', 608],
      ['fec_recovered_packets', 609],
      ['fps', 607],
    ],
  ],
  [
    'audio_stats',
    [
      ['transmit_level', 1.5],
      ['output_level', 2.5],
      ['snr', 3.5],
      ['downlink_jitter', 11],
      ['uplink_jitter', 12],
      ['downlink_packet_loss_count', 13],
      ['uplink_packet_loss_count', 14],
      ['downlink_packet_corrected_count', 15],
      ['uplink_packet_corrected_count', 16],
      ['downlink_payload_bytes', 17],
      ['uplink_payload_bytes', 18],
    ],
  ],
];

// Objects as lists of their entries, which keeps the order of the properties.
function withOrder(value) {
  if (Array.isArray(value)) return value.map(withOrder);
  if (typeof value !== 'object') return value;
  return Object.entries(value).map(([key, inner]) => [key, withOrder(inner)]);
}

function statsOf(meetingStats) {
  engine.setResults({ meetingStats });
  return wrapper.getMeetingStats();
}

test('getMeetingStats returns every value, by name and in order', () => {
  assert.deepEqual(withOrder(statsOf(MEETING_STATS)), EXPECTED);
  assert.deepEqual(engine.calls(), [{ operation: 'GetMeetingStats', args: {} }]);
});

test('getMeetingStats ignores arguments', () => {
  engine.setResults({ meetingStats: MEETING_STATS });
  assert.deepEqual(withOrder(wrapper.getMeetingStats(null, 5)), EXPECTED);
});

test('getMeetingStats returns plain objects and arrays, new ones for every call', () => {
  const first = statsOf(MEETING_STATS);
  const second = wrapper.getMeetingStats();
  assert.deepEqual(first, second);
  for (const part of Object.keys(first)) assert.notEqual(first[part], second[part]);
  for (const stats of [first, first.meetingStats, first.video_send_stats[0], first.audio_stats]) {
    assert.equal(Object.getPrototypeOf(stats), Object.prototype);
  }
  assert.equal(Array.isArray(first.video_send_stats), true);
  assert.equal(Array.isArray(first.video_recv_stats), true);
});

test('without video the lists are empty, and the content values are present', () => {
  const stats = statsOf({ contentSend: { width: 5 }, contentReceive: { fps: 6 } });
  assert.deepEqual(stats.video_send_stats, []);
  assert.deepEqual(stats.video_recv_stats, []);
  assert.deepEqual(stats.content_send_stats, {
    width: 5,
    height: 0,
    total_bitrate_bps: 0,
    pacer_delay_ms: 0,
    fps: 0,
    retransmit_bitrate_bps: 0,
  });
  assert.deepEqual(stats.content_recv_stats, {
    width: 0,
    height: 0,
    total_bitrate_bps: 0,
    target_delay_ms: 0,
    rtx_recovered_packets: 0,
    fec_recovered_packets: 0,
    fps: 6,
  });
});

test('values that the engine does not fill in are 0', () => {
  engine.setResults({ meetingStats: MEETING_STATS });
  engine.failOperation('GetMeetingStats', { returnsNull: true });
  const { video_send_stats: sent, ...stats } = wrapper.getMeetingStats();
  assert.deepEqual(sent, []);
  assert.deepEqual(new Set(Object.values(stats).flatMap(Object.values)), new Set([0]));
});

test('streams are listed by ascending unsigned SSRC', () => {
  const ssrcs = [4294967295, 2147483648, 300, 2147483647, 7, 0];
  const videos = ssrcs.map((ssrc) => [ssrc, videoStats(ssrc % 1000)]);
  const stats = statsOf({ videoSend: videos, videoReceive: videos });
  const ascending = [0, 7, 300, 2147483647, 2147483648, 4294967295];
  for (const list of [stats.video_send_stats, stats.video_recv_stats]) {
    assert.deepEqual(
      list.map(({ ssrc, width }) => [ssrc, width]),
      ascending.map((ssrc) => [ssrc, (ssrc % 1000) + 1]),
    );
  }
});

test('the extreme values of each type are passed on unchanged', () => {
  const ends = {
    width: -2147483648,
    totalBitrateBps: 2147483647,
    fractionLost: 0.1,
    cumulativeLost: 4294967295,
    delayMs: -1,
    rtxRecoveredPackets: -2147483648,
    retransmitBitrateBps: -2147483648,
  };
  const stats = statsOf({
    systemCpu: -1,
    sendTmmbrBitrate: -2147483648,
    instantInboundLoss: 0.1,
    instantOutboundLoss: Infinity,
    videoSend: [[1, ends]],
    contentSend: ends,
    videoReceive: [[1, ends]],
    contentReceive: ends,
    audio: {
      transmitLevel: -0.1,
      outputLevel: NaN,
      snr: -Infinity,
      downlinkJitter: 4294967295,
      uplinkJitter: 2147483648,
      uplinkPacketCorrectedCount: 4294967295,
    },
  });
  const { meetingStats, audio_stats: audio } = stats;
  assert.deepEqual([meetingStats.system_cpu, meetingStats.send_tmmbr_bitrate], [-1, -2147483648]);
  assert.equal(meetingStats.instant_inbound_loss, Math.fround(0.1));
  assert.equal(meetingStats.instant_outbound_loss, Infinity);
  for (const video of [stats.video_send_stats[0], stats.video_recv_stats[0]]) {
    const { width, total_bitrate_bps: bitrate, fraction_loss: lost, cumulative_loss: sum } = video;
    assert.deepEqual([width, bitrate, lost, sum], [-2147483648, 2147483647, 0.1, 4294967295]);
  }
  assert.equal(stats.video_send_stats[0].pacer_delay_ms, -1);
  assert.equal(stats.video_recv_stats[0].target_delay_ms, -1);
  assert.equal(stats.content_send_stats.retransmit_bitrate_bps, -2147483648);
  assert.equal(stats.content_recv_stats.rtx_recovered_packets, -2147483648);
  assert.deepEqual([audio.transmit_level, audio.output_level, audio.snr], [-0.1, NaN, -Infinity]);
  assert.deepEqual([audio.downlink_jitter, audio.uplink_jitter], [4294967295, 2147483648]);
  assert.equal(audio.uplink_packet_corrected_count, 4294967295);
});

for (const [count, expected] of [
  [2 ** 53 - 1, 9007199254740991],
  [2n ** 53n + 1n, 9007199254740992],
  [2n ** 63n, 9223372036854775808],
  [2n ** 64n - 1n, 18446744073709551616],
]) {
  test(`a count of ${count} bytes is shown as ${expected}`, () => {
    const { audio_stats: audio } = statsOf({
      audio: { downlinkPayloadBytes: count, uplinkPayloadBytes: count },
    });
    assert.equal(audio.downlink_payload_bytes, expected);
    assert.equal(audio.uplink_payload_bytes, expected);
  });
}

test('getMeetingStats lists a large number of streams', () => {
  const videoReceive = Array.from({ length: 20_000 }, (_, ssrc) => [ssrc, { fps: ssrc }]);
  assert.deepEqual(
    statsOf({ videoReceive }).video_recv_stats.map(({ ssrc, fps }) => [ssrc, fps]),
    videoReceive.map(([ssrc]) => [ssrc, ssrc]),
  );
});

testEngineFailures({
  wrapper,
  method: 'getMeetingStats',
  args: () => [],
  operations: ['GetMeetingStats'],
});

// ---- getMediaMeetingAttributes

function attributesOf(requiredMeetingAttributes) {
  engine.setResults({ requiredMeetingAttributes });
  return wrapper.getMediaMeetingAttributes();
}

test('getMediaMeetingAttributes lists attributes in ascending order, each once', () => {
  assert.deepEqual(attributesOf(['b', 'a', 'b']), [{ value: 'a' }, { value: 'b' }]);
  assert.deepEqual(engine.calls(), [{ operation: 'GetRequiredMeetingAttributes', args: {} }]);
});

test('getMediaMeetingAttributes sorts by UTF-8 bytes', () => {
  const ordered = ['', 'A', 'Z', 'a', 'a\0', 'aa', 'é', '\uffff', '\u{10000}'];
  assert.deepEqual(
    attributesOf([...ordered].reverse()).map(({ value }) => value),
    ordered,
  );
});

test('getMediaMeetingAttributes returns an empty array when no attribute is required', () => {
  assert.deepEqual(attributesOf([]), []);
  engine.failOperation('GetRequiredMeetingAttributes', { returnsNull: true });
  assert.deepEqual(attributesOf(['a']), []);
});

test('getMediaMeetingAttributes ignores arguments', () => {
  engine.setResults({ requiredMeetingAttributes: ['a'] });
  assert.deepEqual(wrapper.getMediaMeetingAttributes(null, {}), [{ value: 'a' }]);
});

testEngineFailures({
  wrapper,
  method: 'getMediaMeetingAttributes',
  args: () => [],
  operations: ['GetRequiredMeetingAttributes'],
});

// ---- Both

for (const [method, prototype, key] of [
  ['getMeetingStats', Object.prototype, 'meetingStats'],
  ['getMeetingStats', Object.prototype, 'pacer_delay_ms'],
  ['getMeetingStats', Object.prototype, 'uplink_payload_bytes'],
  ['getMeetingStats', Array.prototype, '1'],
  ['getMediaMeetingAttributes', Object.prototype, 'value'],
  ['getMediaMeetingAttributes', Array.prototype, '1'],
]) {
  const results = { meetingStats: MEETING_STATS, requiredMeetingAttributes: ['a', 'b'] };
  const prepare = () => engine.setResults(results);
  testSetterThrows({ wrapper, method, prototype, key, prepare });
}

testPrintsNothing({
  methods: ['configureMeetingStats', 'getMeetingStats', 'getMediaMeetingAttributes'],
});
