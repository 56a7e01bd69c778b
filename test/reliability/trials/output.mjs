// A standard output that is closed, full, or a pipe without a reader for a while, which may or may
// not block its writers.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { openSync, closeSync } from 'node:fs';
import { createInterface } from 'node:readline';
import { text } from 'node:stream/consumers';
import { fileURLToPath } from 'node:url';

import { nextTurn } from '../../support/next_turn.mjs';
import { removeLeftovers } from '../../support/shared_memory/shared_memory_names.mjs';
import { inParallel } from '../../support/in_parallel.mjs';

const program = fileURLToPath(
  new URL('../../support/processes/output_process.mjs', import.meta.url),
);
const LINES = 5000; // far more than a pipe holds
const LINE = 'disableSharedMemory: Not allocated, something is wrong!';

function start(stdout, kind = 'unblocked') {
  const child = spawn(process.execPath, [program, kind], {
    stdio: ['ignore', stdout, 'pipe', 'pipe'],
  });
  const answers = createInterface({ input: child.stdio[3] })[Symbol.asyncIterator]();
  const stderr = text(child.stderr);
  return {
    child,
    async writes(name, times) {
      child.stdio[3].write(`${name} ${times}\n`);
      const { value } = await answers.next();
      assert.equal(value, name, await Promise.race([stderr, '']));
    },
    async ends(exit) {
      const [code, signal] = await exit;
      assert.deepEqual(
        { code, signal, stderr: await stderr },
        { code: 0, signal: null, stderr: '' },
      );
    },
  };
}

async function closed() {
  const { child, writes, ends } = start('pipe');
  const exit = once(child, 'exit');
  child.stdout.destroy();
  await writes('first', LINES);
  await writes('end', LINES);
  await ends(exit);
}

// The process has no standard output at all.
async function absent() {
  const { child, writes, ends } = start('ignore', 'absent');
  const exit = once(child, 'exit');
  await writes('first', LINES);
  await writes('end', LINES);
  await ends(exit);
}

async function full() {
  const device = openSync('/dev/full', 'w');
  const { child, writes, ends } = start(device);
  closeSync(device);
  const exit = once(child, 'exit');
  await writes('first', LINES);
  await writes('end', LINES);
  await ends(exit);
}

let lost = 0;

async function slow(kind) {
  const { child, writes, ends } = start('pipe', kind);
  const close = once(child, 'close');
  // The pipe is not read, so it fills.
  await writes('first', LINES);
  const output = [];
  child.stdout.on('data', (chunk) => output.push(chunk));
  const linesOf = () => Buffer.concat(output).toString().split('\n');
  // All of it has been written: a turn of the loop without any means that there is room again.
  for (let read = -1; read < output.length || read === 0;) {
    read = output.length;
    await nextTurn();
  }
  const before = linesOf().filter((line) => line === LINE).length;
  assert.ok(before < LINES, 'the pipe has taken everything');
  lost += LINES - before;
  await writes('end', 10);
  await ends(close);
  const lines = linesOf();
  // Lines that are written when the pipe has space again arrive whole.
  assert.ok(
    lines.filter((line) => line === LINE).length >= before + 10,
    lines.slice(-30).join('\n'),
  );
  assert.match(lines.slice(0, -1).at(-1), /^~/);
}

export async function run(count, { after }) {
  after(removeLeftovers);
  const kinds = [closed, absent, full, () => slow('unblocked'), () => slow('blocking')];
  await inParallel(Array.from({ length: count }, (_, i) => kinds[i % kinds.length]));
  return { 'lines lost by full pipes': lost };
}
