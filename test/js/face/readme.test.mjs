// The README's call is a program that runs to its end.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { repository } from '../../support/build.mjs';

test('the example of the README receives a stream and its frames, and ends', (t) => {
  const readme = readFileSync(path.join(repository, 'README.md'), 'utf8');
  const [, source] = readme.match(/^## A call in ten lines\n\n```js\n(.*?)^```$/ms);
  // In the repository, where the package finds itself by its name.
  const directory = mkdtempSync(path.join(repository, 'build', 'readme-'));
  t.after(() => rmSync(directory, { recursive: true }));
  const program = path.join(directory, 'call.mjs');
  writeFileSync(program, source);
  const { status, signal, stdout, stderr } = spawnSync(process.execPath, [program], {
    encoding: 'utf8',
    timeout: 60_000,
    killSignal: 'SIGKILL',
  });
  assert.deepEqual([status, signal, stderr], [0, null, '']);
  assert.match(stdout, /^stream: remote 3$/m);
  assert.match(stdout, /^frame \d+ 640 x 360 345600$/m);
});
