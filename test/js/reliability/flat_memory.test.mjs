// The soak's decision whether memory is flat, with simulated samples.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { assertStaysFlat } from '../../support/reliability/flat_memory.mjs';

// In seconds, without the quarter for the warm-up.
const HALF_AN_HOUR = 1350;
const FOUR_HOURS = 10_800;
const SAMPLES = 30;

const steady = (perHour) => (seconds) => 50_000 + (perHour * seconds) / 3600;
const stepOf = (kilobytes) => (seconds, took) => 50_000 + (seconds > took / 2 ? kilobytes : 0);
// Increases and decreases by this amount from one sample to the next.
const restless = (kilobytes) => (_seconds, _took, at) => 50_000 + (at % 2) * kilobytes;

function samplesOf(took, memory) {
  return Array.from({ length: SAMPLES }, (_, at) => {
    const seconds = (took * at) / (SAMPLES - 1);
    return { seconds, kilobytes: memory(seconds, took, at) };
  });
}

const grown = (growth) => ({ 'growth, kB': growth });
const slope = (perHour) => ({ 'slope, kB an hour': perHour });

for (const [name, took, memory, figures] of [
  ['nothing grows', FOUR_HOURS, steady(0), { ...grown(0), ...slope(0) }],
  ['it varies', HALF_AN_HOUR, restless(800), { ...grown(0), ...slope(206) }],
  ['it grows by one step', HALF_AN_HOUR, stepOf(512), { ...grown(512), ...slope(1982) }],
  [
    'it grows slowly for half an hour',
    HALF_AN_HOUR,
    steady(2_500),
    { ...grown(647), ...slope(2_500) },
  ],
  ['it grows slowly for four hours', FOUR_HOURS, steady(490), { ...grown(1014), ...slope(490) }],
  ['it shrinks', FOUR_HOURS, steady(-9_000), { ...grown(-18_621), ...slope(-9_000) }],
]) {
  test(`memory counts as flat where ${name}`, () => {
    assert.deepEqual(assertStaysFlat('main', samplesOf(took, memory)), figures);
  });
}

test('over a short time no slope is reported, so that steep growth passes', () => {
  assert.deepEqual(assertStaysFlat('main', samplesOf(45, steady(80_000))), grown(690));
});

test('no slope is reported where memory is not judged', () => {
  const samples = samplesOf(FOUR_HOURS, steady(490));
  assert.deepEqual(assertStaysFlat('main', samples, { isJudged: false }), grown(1014));
});

for (const [name, took, memory, message] of [
  [
    'it grows too fast for half an hour',
    HALF_AN_HOUR,
    steady(2_600),
    /^main grows by 2600 kB an hour: 50000, /,
  ],
  ['it grows by two steps', HALF_AN_HOUR, stepOf(1024), /^main grows by 3964 kB an hour: 50000, /],
  ['it grows too fast for four hours', FOUR_HOURS, steady(500), /^main grows: 50000, /],
  ['it grows by a large step in a short time', 45, stepOf(1025), /^main grows: 50000, /],
]) {
  test(`memory does not count as flat where ${name}`, () => {
    const samples = samplesOf(took, memory);
    assert.throws(() => assertStaysFlat('main', samples), { name: 'AssertionError', message });
    assert.ok(assertStaysFlat('main', samples, { isJudged: false })['growth, kB'] > 0);
  });
}
