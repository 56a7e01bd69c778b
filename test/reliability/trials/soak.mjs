// A long meeting: main process and widget.

import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { setTimeout } from 'node:timers/promises';

import '../../support/build.mjs'; // names the addon for the processes
import { startProcess } from '../../support/commanded_process.mjs';
import { filesNamedIn, removeLeftovers } from '../../support/shared_memory/shared_memory_names.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { assertStaysFlat } from '../../support/reliability/flat_memory.mjs';

const SAMPLES = 40;
const WARM_UP_SAMPLES = 10;
const STREAMS = 4;
const FRAMES_A_SECOND = 30;
const EVENTS_A_SECOND = 100;
// Of what is due in the time that passes.
const LEAST_SHARE = { events: 0.95, sent: 0.95, read: 0.8 };
const TOLD_AS_WRONG = /timedout|wrong|failed|No mapped|not found/;

// A sanitizer keeps memory that was freed.
const isSanitized = Boolean(process.env.LD_PRELOAD);

const sum = (values) => values.reduce((total, value) => total + value, 0);

// For all streams: the number of frames from the engine between two samples, and of those read.
function framesBetween(first, last) {
  const total = (sample, key) => sum(sample.streams.map((stream) => stream[key]));
  return {
    sent: total(last, 'newest') - total(first, 'newest'),
    read: total(last, 'frames') - total(first, 'frames'),
  };
}

export async function run(seconds, { after, judgesTimes }) {
  const start = () => startProcess({ after }, './support/processes/soak_process.mjs');
  removeLeftovers();
  const sides = { main: start(), widget: start() };
  const logPath = temporaryDirectory({ after });
  const { key, streams } = await sides.main.does('join', logPath);
  assert.equal(streams.length, STREAMS);
  await sides.widget.does('read', key, streams);

  const samples = { main: [], widget: [] };
  const begin = performance.now();
  const elapsed = () => (performance.now() - begin) / 1000;
  for (let sample = 1; sample <= SAMPLES; ++sample) {
    await setTimeout(Math.max(0, ((seconds * sample) / SAMPLES - elapsed()) * 1000));
    for (const [side, commanded] of Object.entries(sides)) {
      const before = samples[side].at(-1)?.streams.map(({ frames }) => frames);
      const state = await commanded.does('state', before ?? streams.map(() => 0));
      samples[side].push({ ...state, seconds: elapsed() });
    }
  }

  const figures = {};
  for (const [side, all] of Object.entries(samples)) {
    const [first, last] = [all[0], all.at(-1)];
    const warm = all.slice(WARM_UP_SAMPLES);
    assert.deepEqual(last.counts, warm[0].counts);
    assert.deepEqual(last.wrongs, { eventsOutOfOrder: 0, wrongFrames: 0, framesOutOfOrder: 0 });
    const { sent, read } = framesBetween(first, last);
    if (judgesTimes) {
      const due = STREAMS * FRAMES_A_SECOND * (last.seconds - first.seconds);
      assert.ok(sent >= LEAST_SHARE.sent * due, `${sent} frames of ${due} were sent`);
      assert.ok(read >= LEAST_SHARE.read * sent, `${side} has read ${read} frames of ${sent}`);
    }
    figures[`${side}: frames sent`] = sent;
    figures[`${side}: read`] = read;
    figures[`${side}: kB at the end`] = last.kilobytes;
    const flat = assertStaysFlat(side, warm, { isJudged: !isSanitized });
    for (const [what, figure] of Object.entries(flat)) figures[`${side}: ${what}`] = figure;
  }

  const [first, last] = [samples.main[0], samples.main.at(-1)];
  assert.equal(last.events.length, EVENTS_A_SECOND);
  // All happen once in a second: none has stopped.
  const [least, most] = [Math.min(...last.events), Math.max(...last.events)];
  assert.ok(least > 0 && most - least <= 1, `between ${least} and ${most} times each`);
  const events = sum(last.events) - sum(first.events);
  const due = EVENTS_A_SECOND * (last.seconds - first.seconds);
  if (judgesTimes) assert.ok(events >= LEAST_SHARE.events * due, `${events} events of ${due}`);

  for (const commanded of Object.values(sides)) {
    assert.deepEqual(
      commanded.lines.filter((line) => TOLD_AS_WRONG.test(line)),
      [],
    );
  }
  await sides.widget.ends();
  await sides.main.ends();
  const files = new Set(filesNamedIn(sides.main.lines));
  assert.equal(files.size, 2 * (1 + STREAMS), 'the files of the meeting and of its streams');
  assert.deepEqual([...files].filter(existsSync), []);
  return { seconds: Math.round(last.seconds), events, ...figures };
}
