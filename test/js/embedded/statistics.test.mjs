// Statistics of the embedded engine: measured values, and 0 for unknown ones.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { Meeting } from '../../support/embedded_meeting.mjs';
import { CONTENT, LOCAL, remote } from '../../support/streams.mjs';

const SMALL = 'tessel:room?participants=1&size=64x36';

const SMALL_FRAME_BITS = ((64 * 36 * 3) / 2) * 8;
const CONTENT_FRAME_BITS = ((1280 * 720 * 3) / 2) * 8;

// Resolves with the statistics of the first window that `matches`.
async function window(meeting, matches, timerDuration = 200) {
  meeting.wrapper.configureMeetingStats({ enable: true, timerDuration });
  return meeting.until(() => {
    const stats = meeting.wrapper.getMeetingStats();
    return matches(stats) && stats;
  });
}

// Both rates are of the same frames; the frame rate is rounded, the bit rate cut.
function assertRates({ fps, total_bitrate_bps: bits }, frameBits) {
  const frames = bits / frameBits;
  assert.ok(Math.abs(frames - fps) < 0.501, `${frames} and ${fps} frames per second`);
}

test('before the first window, and when they are switched off, all statistics are 0', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(SMALL);
  const zero = meeting.wrapper.getMeetingStats();
  assert.deepEqual([zero.video_send_stats, zero.video_recv_stats], [[], []]);
  for (const part of ['meetingStats', 'content_send_stats', 'content_recv_stats', 'audio_stats']) {
    assert.deepEqual(new Set(Object.values(zero[part])), new Set([0]), part);
  }
  const stats = await window(meeting, ({ video_recv_stats: [stream] }) => stream?.fps > 0);
  assert.notDeepEqual(stats, zero);
  meeting.wrapper.configureMeetingStats({ enable: false, timerDuration: 200 });
  await meeting.until(() => meeting.wrapper.getMeetingStats().video_recv_stats.length === 0);
  assert.deepEqual(meeting.wrapper.getMeetingStats(), zero);
});

test('every received stream is measured, and the totals are their sums', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join('tessel:room?participants=3&size=64x36');
  await meeting.seen('streamAdded', ({ streamIndex }) => streamIndex === 2);
  const { video_recv_stats: streams, meetingStats } = await window(
    meeting,
    ({ video_recv_stats: each }) => each.length === 3 && each.every(({ fps }) => fps > 0),
  );
  assert.deepEqual(
    streams.map(({ ssrc }) => ssrc),
    meeting
      .payloads('streamAdded')
      .map(({ csrc }) => csrc)
      .sort((a, b) => a - b),
  );
  for (const stream of streams) {
    assert.deepEqual([stream.width, stream.height], [64, 36]);
    assertRates(stream, SMALL_FRAME_BITS);
  }
  const sum = streams.reduce((bits, stream) => bits + stream.total_bitrate_bps, 0);
  // Each was rounded down by less than a bit.
  assert.ok(Math.abs(meetingStats.total_inbound_bps - sum) < streams.length);
  assert.equal(meetingStats.total_outbound_bps, 0);
});

test('the frame rate is that of the sender', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(`${SMALL}&fps=20`);
  const isThatRate = ({ video_recv_stats: [stream] }) =>
    stream !== undefined && Math.abs(stream.fps - 20) <= 1;
  await window(meeting, isThatRate, 1000);
});

test('a stream that is muted, or not requested, is not listed', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join('tessel:room?participants=2&size=64x36&videomute=1@0');
  const { csrc } = await meeting.seen('streamAdded');
  const { video_recv_stats: streams } = await window(
    meeting,
    ({ video_recv_stats: each }) => each.length > 0,
  );
  assert.deepEqual(
    streams.map(({ ssrc }) => ssrc),
    [csrc],
  );
});

test('the local video counts as sent during a call', async (t) => {
  const meeting = new Meeting(t);
  meeting.wrapper.enableCameraCapture(true);
  meeting.wrapper.setVideoDevice({
    videoDeviceId: 'camera-0',
    videoDeviceName: '',
    capability: { width: 64, height: 36 },
  });
  await meeting.frameWhere(LOCAL, ({ width }) => width === 64);
  const { csrc } = await meeting.seen('streamAdded');
  await meeting.join('tessel:room?participants=0');
  const { video_send_stats: streams, meetingStats } = await window(
    meeting,
    ({ video_send_stats: [stream] }) => stream?.fps > 0,
  );
  const [sent, ...others] = streams;
  assert.deepEqual([sent.ssrc, sent.width, sent.height, others], [csrc, 64, 36, []]);
  assertRates(sent, SMALL_FRAME_BITS);
  assert.equal(meetingStats.total_outbound_bps, sent.total_bitrate_bps);
  meeting.wrapper.muteLocalVideo(true);
  await window(meeting, ({ video_send_stats: each }) => each.length === 0);
});

test('content counts as sent or received, according to who shares it', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(`${SMALL}&present=0@0-4`);
  await meeting.nextFrame(CONTENT);
  const received = await window(meeting, (stats) => stats.content_recv_stats.fps > 0);
  const content = received.content_recv_stats;
  assert.deepEqual([content.width, content.height], [1280, 720]);
  assertRates(content, CONTENT_FRAME_BITS);
  assert.equal(received.content_send_stats.fps, 0);
  await meeting.seen('contentReceive', ({ isReceiving }) => !isReceiving);
  meeting.wrapper.requestContentShareToken();
  meeting.wrapper.startPresentation({ type: 'screen' });
  const sent = await window(meeting, (stats) => stats.content_send_stats.fps > 0);
  assert.deepEqual([sent.content_send_stats.width, sent.content_recv_stats.fps], [1280, 0]);
});

test('lost packets are counted, and a link without loss counts none', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join('tessel:room?participants=2&size=160x90&fps=60&loss=1:0.3');
  await meeting.seen('streamAdded', ({ streamIndex }) => streamIndex === 1);
  const [whole, lossy] = meeting.payloads('streamAdded').map(({ csrc }) => csrc);
  const of = (stats, csrc) => stats.video_recv_stats.find(({ ssrc }) => ssrc === csrc);
  const stats = await window(meeting, (each) => of(each, lossy)?.fraction_loss > 0);
  const { fraction_loss: fraction, cumulative_loss: count } = of(stats, lossy);
  assert.ok(fraction <= 1 && count > 0, `${fraction} ${count}`);
  assert.deepEqual([of(stats, whole).fraction_loss, of(stats, whole).cumulative_loss], [0, 0]);
  const { instant_inbound_loss: loss, instant_outbound_loss: lossOut } = stats.meetingStats;
  assert.ok(loss > 0 && loss < fraction, 'one of two links loses');
  assert.equal(lossOut, 0);
  await window(meeting, (each) => of(each, lossy)?.cumulative_loss > count);
});

test('a link that loses everything delivers no frame', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(`${SMALL}&loss=1`);
  const { video_recv_stats: streams, meetingStats } = await window(
    meeting,
    ({ video_recv_stats: [stream] }) => stream?.fraction_loss > 0,
  );
  assert.deepEqual([streams[0].fps, streams[0].fraction_loss], [0, 1]);
  assert.equal(meetingStats.instant_inbound_loss, 1);
  assert.equal(meeting.wrapper.getFrame(remote(0), 0).noUpdate, true);
});

test('the processor load is measured with and without a call', async (t) => {
  const meeting = new Meeting(t);
  // The wait for it uses the processor.
  const { meetingStats } = await window(meeting, (stats) => stats.meetingStats.process_cpu > 0);
  const { system_cpu: system, process_cpu: process } = meetingStats;
  assert.ok(process <= 100 && system > 0 && system <= 100, `${system} ${process}`);
});

test('the levels are those of the present speaker', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(`${SMALL}&speak=me@0-1000`);
  const { audio_stats: audio } = await window(
    meeting,
    (stats) => stats.audio_stats.transmit_level > 0,
  );
  assert.ok(audio.transmit_level <= 100);
  assert.equal(audio.output_level, 0);
});

test('values that the engine cannot know are 0', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(`${SMALL}&present=0@0&speak=0@0-1000,me@0-1000`);
  meeting.wrapper.enableCameraCapture(true);
  const stats = await window(
    meeting,
    ({ video_recv_stats: [received], video_send_stats: [sent], content_recv_stats: content }) =>
      received?.fps > 0 && sent?.fps > 0 && content.fps > 0,
  );
  const {
    video_recv_stats: [received],
    video_send_stats: [sent],
  } = stats;
  const unknown = [
    [stats.meetingStats, ['inbound_bwe_bps', 'outbound_bwe_bps', 'send_tmmbr_bitrate']],
    [received, ['target_delay_ms', 'rtx_recovered_packets', 'fec_recovered_packets']],
    [sent, ['pacer_delay_ms', 'retransmit_bitrate_bps']],
    [stats.content_recv_stats, ['target_delay_ms', 'rtx_recovered_packets']],
    [stats.audio_stats, Object.keys(stats.audio_stats).filter((name) => !name.includes('level'))],
  ];
  for (const [part, names] of unknown) {
    for (const name of names) assert.equal(part[name], 0, name);
  }
});
