// The examples of the guide: each is a program that runs to its end.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { after, test } from 'node:test';

import { build, repository } from './support/face.mjs';

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
  'production.mjs': ['too slow: Joining took longer than 100 ms', 'in hand: 0'],
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

for (const [name, lines] of Object.entries(OUTPUT)) {
  test(`${name} runs and says what it should`, () => {
    const { status, signal, stdout, stderr } = spawnSync(
      process.execPath,
      ['--test-reporter=tap', path.join(directory, name)],
      { encoding: 'utf8', timeout: 60_000, killSignal: 'SIGKILL' },
    );
    assert.deepEqual([status, signal, stderr], [0, null, '']);
    const said = stdout.split('\n');
    for (const line of lines) assert.ok(said.includes(line), `${line}\nis not in\n${stdout}`);
  });
}
