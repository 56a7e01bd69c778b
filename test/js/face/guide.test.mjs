// The examples of the guide: each is a program that runs to its end.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { after, test } from 'node:test';

import { filesNamedIn } from '../../support/shared_memory/shared_memory_names.mjs';
import { build, repository } from '../../support/build.mjs';

const guide = readFileSync(path.join(repository, 'docs/guide.md'), 'utf8');
const examples = new Map(
  [...guide.matchAll(/^```js (\S+)\n(.*?)^```$/gms)].map(([, name, source]) => [name, source]),
);

// Each example's own lines of output; the engine's notices stand among them.
const OUTPUT = {
  'join.mjs': [
    'refused: the meeting refused the join 403',
    'stream remote 0',
    'stream remote 1',
    'left: the call was left',
  ],
  'frames.mjs': ['shown: 5'],
  'share.mjs': ['monitor: 1920 x 1080', 'sharing', 'not shared: failed'],
  'pop_out.mjs': ['pictures: 5', 'widget ended: 0'],
  'application.test.mjs': ['# pass 2'],
  'engine.mjs': [`ok       engine ${build}/libtesselclient.so`],
  'production.mjs': ['too slow: Joining took longer than 100 ms', 'in hand: remote-0 0'],
};
// Started by other examples.
const PARTS = ['widget.mjs'];

// In the repository, where the package finds itself by its name.
const directory = mkdtempSync(path.join(repository, 'build', 'guide-'));
after(() => rmSync(directory, { recursive: true }));
for (const [name, source] of examples) writeFileSync(path.join(directory, name), source);

test('every example in JavaScript is known here, and has a name', () => {
  assert.deepEqual([...examples.keys()].sort(), [...Object.keys(OUTPUT), ...PARTS].sort());
  assert.equal(guide.match(/^```js/gm).length, examples.size);
});

// Runs it to its end, which is without an error, and expects these lines among its output.
function expectRun(name, lines) {
  const { status, signal, stdout, stderr } = spawnSync(
    process.execPath,
    ['--test-reporter=tap', path.join(directory, name)],
    { encoding: 'utf8', timeout: 60_000, killSignal: 'SIGKILL' },
  );
  assert.deepEqual([status, signal, stderr], [0, null, '']);
  const said = stdout.split('\n');
  for (const line of lines) assert.ok(said.includes(line), `${line}\nis not in\n${stdout}`);
}

for (const [name, lines] of Object.entries(OUTPUT)) {
  test(`${name} runs and says what it should`, () => expectRun(name, lines));
}

// How the program ends that sends itself `signal` when it has joined, and how many names it leaves.
function joinAndEndBy(signal, { withHandler }) {
  const statement = 'await present;';
  const source = examples.get('join.mjs');
  assert.ok(source.includes(statement));
  const handler = /^for \(const name of .*?^}\n/ms;
  assert.match(source, handler);
  const end = `process.kill(process.pid, '${signal}'); await new Promise(() => {});`;
  const program = source.replace(statement, end);
  const file = path.join(directory, 'ended.mjs');
  writeFileSync(file, withHandler ? program : program.replace(handler, ''));
  const child = spawnSync(process.execPath, [file], { encoding: 'utf8' });
  const names = filesNamedIn(child.stdout.split('\n'));
  assert.equal(names.length, 2);
  const left = names.filter(existsSync);
  for (const name of left) rmSync(name);
  return { status: child.status, signal: child.signal, left: left.length };
}

test('the handler of join.mjs removes the names that a signal would leave', () => {
  for (const [signal, number] of [
    ['SIGINT', 2],
    ['SIGTERM', 15],
    ['SIGHUP', 1],
  ]) {
    assert.deepEqual(joinAndEndBy(signal, { withHandler: true }), {
      status: 128 + number,
      signal: null,
      left: 0,
    });
    assert.deepEqual(joinAndEndBy(signal, { withHandler: false }), {
      status: null,
      signal,
      left: 2,
    });
  }
});

// The program terminates itself at that moment, in which it would otherwise wait or go on.
for (const [moment, statement, terminating, lines] of [
  ['joins', 'timeout: 100', 'timeout: (terminate(), 2 ** 31 - 1)', []],
  ['shows frames', '>= 10) break', '=== 10) terminate()', ['in hand: remote-0 0']],
]) {
  test(`production.mjs ends well when it is terminated while it ${moment}`, () => {
    const source = examples.get('production.mjs');
    assert.ok(source.includes(statement));
    const terminate = "function terminate() { process.kill(process.pid, 'SIGTERM'); }";
    const program = `${source.replace(statement, terminating)}${terminate}`;
    writeFileSync(path.join(directory, 'terminated.mjs'), program);
    expectRun('terminated.mjs', ['ended: asked to end', ...lines]);
  });
}
