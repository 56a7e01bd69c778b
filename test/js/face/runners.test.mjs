// The guide's commands for test runners: each writes a report without native lines in it.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { repository } from '../../support/build.mjs';

const guide = readFileSync(path.join(repository, 'docs/guide.md'), 'utf8');
// What follows the runner's name, by that name.
const COMMANDS = Object.fromEntries(
  [...guide.matchAll(/^\| (\w+) \| `\w+ (.*)` \|$/gm)].map(([, name, words]) => [name, words]),
);
const PROGRAMS = {
  node: [],
  mocha: [path.join(repository, 'node_modules/mocha/bin/mocha.js')],
};

const TEST = `
import { Meeting } from 'tessel-wrapper';

it('joins', async () => {
  const meeting = await Meeting.open({ logPath: '/tmp' });
  try {
    await meeting.join({ uri: 'tessel:demo' });
  } finally {
    meeting.close();
  }
}, { timeout: 60_000 });`;

// Runs a test that opens a meeting by `words` of the runner, in a directory of its own: what it
// says, and a reader of the files that it leaves.
function run(t, name, words, imports = '') {
  // In the repository, where the package finds itself by its name.
  const directory = mkdtempSync(path.join(repository, 'build', 'runners-'));
  t.after(() => rmSync(directory, { recursive: true }));
  writeFileSync(path.join(directory, 'meeting.test.mjs'), imports + TEST);
  const env = { ...process.env };
  delete env.NODE_TEST_CONTEXT; // a runner in a test of another would run nothing
  const { status, stdout, stderr } = spawnSync(
    process.execPath,
    [...PROGRAMS[name], ...words.split(' '), 'meeting.test.mjs'],
    { cwd: directory, encoding: 'utf8', env },
  );
  assert.deepEqual([status, stderr], [0, '']);
  return { stdout, read: (file) => readFileSync(path.join(directory, file), 'utf8') };
}

const NATIVE_LINE = /TesselWrapper::TesselWrapper Params params.szLogPath: \/tmp$/m;

test('the guide has a command for each of the runners', () => {
  assert.deepEqual(Object.keys(COMMANDS).sort(), ['jest', 'mocha', 'node', 'vitest']);
});

test('mocha writes its JSON report into a file', (t) => {
  const { stdout, read } = run(t, 'mocha', COMMANDS.mocha);
  assert.match(stdout, NATIVE_LINE);
  assert.equal(JSON.parse(read('report.json')).stats.passes, 1);
  const mixed = run(t, 'mocha', '--reporter json').stdout;
  assert.throws(() => JSON.parse(mixed), SyntaxError);
});

test('node writes its TAP report into a file', (t) => {
  const { read } = run(t, 'node', COMMANDS.node, "import { it } from 'node:test';");
  assert.match(read('report.tap'), /^ok 1 - joins$/m);
  assert.match(read('report.tap'), /^# fail 0$/m);
});
