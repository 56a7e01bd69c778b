// Hostile contents of segments and configurations: each fuzzer for this number of seconds.

import assert from 'node:assert/strict';

import { FUZZERS, fuzz } from '../../support/fuzz.mjs';

export function run(seconds) {
  const figures = {};
  for (const [fuzzer] of FUZZERS) {
    const { status, signal, stderr } = fuzz(fuzzer, { seconds });
    assert.deepEqual({ status, signal }, { status: 0, signal: null }, stderr);
    figures[`inputs of ${fuzzer}`] = Number(/Done (\d+) runs/.exec(stderr)[1]);
  }
  return figures;
}
