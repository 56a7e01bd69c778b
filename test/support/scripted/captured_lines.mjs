// Captures the lines of native code. They go directly to the process's standard output, so the code
// runs in a second process.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { writeSync } from 'node:fs';

const SEPARATOR = '\u0001\n';

// Runs the steps that `makeSteps({ wrapper, goodArguments, records, engine, data })` returns,
// functions without parameters, in another process, and answers with { lines, error } for each: the
// lines that it printed and the text of what it threw, or null. `makeSteps` is sent as its source:
// it sees nothing but its parameter. `data` is sent as JSON.
export function stepsApart(makeSteps, data = null) {
  const program = `
    import { runSteps } from ${JSON.stringify(import.meta.url)};
    await runSteps(${makeSteps}, ${JSON.stringify(data)});
  `;
  const { status, signal, stdout, stderr, output } = spawnSync(
    process.execPath,
    ['--input-type=module', '-e', program],
    { stdio: ['ignore', 'pipe', 'pipe', 'pipe'], encoding: 'utf8', maxBuffer: 2 ** 26 },
  );
  assert.deepEqual({ status, signal, stderr }, { status: 0, signal: null, stderr: '' });
  const errors = JSON.parse(output[3]);
  const printed = stdout.split(SEPARATOR).slice(1, -1);
  assert.equal(printed.length, errors.length);
  return errors.map((error, i) => ({ lines: linesOf(printed[i]), error }));
}

function linesOf(text) {
  if (text === '') return [];
  assert.equal(text.at(-1), '\n');
  return text.slice(0, -1).split('\n');
}

// The other process's side.
export async function runSteps(makeSteps, data) {
  const { goodArguments } = await import('./good_arguments.mjs');
  const { construct } = await import('./wrapper_kit.mjs');
  const records = await import('./records.mjs');
  const engine = await import('./scripted_engine.mjs');
  const wrapper = construct();
  const steps = makeSteps({ wrapper, goodArguments, records, engine, data });
  writeSync(1, SEPARATOR);
  const errors = steps.map((step) => {
    let error = null;
    try {
      step();
    } catch (thrown) {
      error = thrown.message;
    }
    writeSync(1, SEPARATOR);
    return error;
  });
  writeSync(3, JSON.stringify(errors));
  wrapper.destroy();
}
