// Checks that the memory of a running process does not grow.

import assert from 'node:assert/strict';

// What a heap may have made room by behind the warming up, however long the soak takes.
const ALLOWED_GROWTH_KB = 1024;
// In a shorter soak one page more of a heap is a steep slope.
const SLOPE_SECONDS = 30 * 60;
// Two bytes for each frame or event of a side, or less; and a step that a heap makes at any time.
const ALLOWED_SLOPE_KB = 512;
const ALLOWED_STEP_KB = 512;

const mean = (values) => values.reduce((total, value) => total + value, 0) / values.length;

// The slope of kilobytes over seconds, by least squares, in kilobytes per hour.
function slopeOf(samples) {
  const [x, y] = [samples.map(({ seconds }) => seconds), samples.map(({ kilobytes }) => kilobytes)];
  const [meanX, meanY] = [mean(x), mean(y)];
  const covariance = x.reduce((total, value, i) => total + (value - meanX) * (y[i] - meanY), 0);
  const variance = x.reduce((total, value) => total + (value - meanX) ** 2, 0);
  return Math.round((covariance / variance) * 3600);
}

// The last ten against the first ten behind the warming up.
function growthOf(samples) {
  const kilobytes = samples.map((sample) => sample.kilobytes);
  return Math.round(mean(kilobytes.slice(-10)) - mean(kilobytes.slice(0, 10)));
}

// Of `samples`, { seconds, kilobytes } each, behind the warming up: the figures of by how many
// kilobytes the memory has grown and, where that is judged, how many it makes an hour. Fails, in
// the name of `side`, when it is too much.
export function assertStaysFlat(side, samples, { isJudged = true } = {}) {
  const growth = growthOf(samples);
  const kilobytes = samples.map((sample) => sample.kilobytes).join(', ');
  if (isJudged) assert.ok(growth <= ALLOWED_GROWTH_KB, `${side} grows: ${kilobytes} kB`);
  const figures = { 'growth, kB': growth };
  const took = samples.at(-1).seconds - samples[0].seconds;
  if (!isJudged || took < 0.7 * SLOPE_SECONDS) return figures;

  const slope = slopeOf(samples);
  // A step in the middle of the time makes the steepest slope.
  const allowed = Math.round(ALLOWED_SLOPE_KB + (1.5 * ALLOWED_STEP_KB * 3600) / took);
  assert.ok(slope <= allowed, `${side} grows by ${slope} kB an hour: ${kilobytes} kB`);
  return { ...figures, 'slope, kB an hour': slope };
}
