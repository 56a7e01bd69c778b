// A meeting that goes on: main process and widget.

import assert from 'node:assert/strict';
import path from 'node:path';
import { setTimeout } from 'node:timers/promises';

import { startProcess } from '../../js/support/commanded_process.mjs';
import { removeLeftovers } from '../../js/support/shared_memory_names.mjs';
import { temporaryDirectory } from '../../js/support/temporary_directory.mjs';

const build = path.resolve(process.env.TESSEL_BUILD ?? 'build/release');
const SAMPLES = 40;
const WARM_UP_SAMPLES = 10;
// What a heap may have made room by behind the warming up, however long the soak takes.
const ALLOWED_GROWTH_KB = 3072;
const TOLD_AS_WRONG = /timedout|wrong|failed|No mapped|not found/;

const isSanitized = Boolean(process.env.LD_PRELOAD);

const mean = (values) => values.reduce((sum, value) => sum + value, 0) / values.length;

// Of kilobytes over seconds, by least squares: kilobytes for each hour.
function slopeOf(samples) {
  const [x, y] = [samples.map(({ seconds }) => seconds), samples.map(({ kilobytes }) => kilobytes)];
  const [meanX, meanY] = [mean(x), mean(y)];
  const covariance = x.reduce((sum, value, i) => sum + (value - meanX) * (y[i] - meanY), 0);
  const variance = x.reduce((sum, value) => sum + (value - meanX) ** 2, 0);
  return Math.round((covariance / variance) * 3600);
}

// The last ten against the first ten behind the warming up.
function growthOf(samples) {
  const kilobytes = samples.map((sample) => sample.kilobytes);
  return Math.round(mean(kilobytes.slice(-10)) - mean(kilobytes.slice(0, 10)));
}

export async function run(seconds, { after }) {
  const start = (module) =>
    startProcess({ after }, module, {
      environment: {
        TESSEL_WRAPPER_ADDON: path.join(build, 'tesselWrapper.node'),
        MALLOC_ARENA_MAX: '1',
      },
    });
  removeLeftovers();
  const sides = {
    main: start('../reliability/fixtures/soak_process.mjs'),
    widget: start('../reliability/fixtures/soak_process.mjs'),
  };
  const logPath = temporaryDirectory({ after });
  const { key, streams } = await sides.main.does('join', logPath);
  await sides.widget.does('read', key, streams);

  const samples = { main: [], widget: [] };
  const begin = performance.now();
  for (let sample = 0; sample < SAMPLES; ++sample) {
    await setTimeout((seconds * 1000) / SAMPLES);
    for (const [side, commanded] of Object.entries(sides)) {
      const state = await commanded.does('state');
      samples[side].push({ ...state, seconds: (performance.now() - begin) / 1000 });
    }
  }

  const figures = {};
  for (const [side, all] of Object.entries(samples)) {
    const warm = all.slice(WARM_UP_SAMPLES);
    const last = warm.at(-1);
    assert.deepEqual(last.counts, warm[0].counts);
    const { eventsOutOfOrder, wrongFrames, framesOutOfOrder } = last;
    assert.deepEqual([eventsOutOfOrder, wrongFrames, framesOutOfOrder], [0, 0, 0]);
    assert.ok(last.frames > all[0].frames);
    const growth = growthOf(warm);
    if (!isSanitized) assert.ok(growth <= ALLOWED_GROWTH_KB, `${side} has grown by ${growth} kB`);
    figures[`${side}: frames`] = last.frames;
    figures[`${side}: kB at the end`] = last.kilobytes;
    figures[`${side}: growth, kB`] = growth;
    figures[`${side}: slope, kB an hour`] = slopeOf(warm);
  }
  const { events } = samples.main.at(-1);
  assert.ok(events > 0);
  for (const commanded of Object.values(sides)) {
    assert.deepEqual(
      commanded.lines.filter((line) => TOLD_AS_WRONG.test(line)),
      [],
    );
  }
  await sides.widget.ends();
  await sides.main.ends();
  return { events, ...figures };
}
