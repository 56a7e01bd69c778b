// The guide's commands for test runners: each writes a report that the native lines do not spoil, of
// tests that open meetings, under the fake timers of those that have some. For the release build
// alone: the sanitizers do not know the threads of the runners' own native parts.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, symlinkSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { repository } from '../support/build.mjs';
import { temporaryDirectory } from '../support/temporary_directory.mjs';

const guide = readFileSync(path.join(repository, 'docs/guide.md'), 'utf8');
// What follows the runner's name, by that name.
const COMMANDS = Object.fromEntries(
  [...guide.matchAll(/^\| (\w+) \| `\w+ (.*)` \|$/gm)].map(([, name, words]) => [name, words]),
);
const packageFile = (name) => path.join(repository, 'node_modules', name);
const PROGRAMS = {
  node: [],
  mocha: [packageFile('mocha/bin/mocha.js')],
  jest: [packageFile('jest/bin/jest.js')],
  vitest: [packageFile('vitest/vitest.mjs')],
};

const JOINS = `
it('joins', async () => {
  const meeting = await Meeting.open({ logPath: '/tmp' });
  try {
    await meeting.join({ uri: 'tessel:demo' });
  } finally {
    meeting.close();
  }
}, LIMIT);`;

// The second meeting waits for the next second.
const JOINS_IN_FAKE_TIME = `
it('joins in fake time', async () => {
  FAKE.useFakeTimers({ now: 0 });
  const meetings = [
    await Meeting.open({ logPath: '/tmp' }),
    await Meeting.open({ logPath: '/tmp' }),
  ];
  try {
    const [meeting] = meetings;
    await meeting.join({ uri: 'tessel:demo?participants=1' });
    for await (const frame of meeting.frames({ type: 'remote', streamIndex: 0 })) {
      expect(frame.noUpdate).toBe(false);
      break;
    }
    await expect(meeting.waitFor('vspUpdateVOQI', { timeout: 1 })).rejects.toThrow('within 1 ms');
    await meeting.leave({ timeout: 60_000 });
    const names = meetings.map(({ wrapper }) => wrapper.getSharedDataInfo().shm_name);
    expect(names[0]).not.toBe(names[1]);
    expect(Date.now()).toBe(0);
  } finally {
    meetings.forEach((meeting) => meeting.close());
    FAKE.useRealTimers();
  }
}, LIMIT);`;

const JOINS_WITH_COPIES = `
it('has a segment for each meeting, also of copies of the package', async () => {
  const copies = [require('tessel-wrapper')];
  jest.resetModules();
  copies.push(require('tessel-wrapper'));
  expect(copies[1].Meeting).not.toBe(copies[0].Meeting);
  const meetings = await Promise.all(copies.map((copy) => copy.Meeting.open({ logPath: '/tmp' })));
  const names = meetings.map(({ wrapper }) => wrapper.getSharedDataInfo().shm_name);
  meetings.forEach((meeting) => meeting.close());
  expect(names[0]).not.toBe(names[1]);
  expect(() => require('tessel-wrapper/webrtc')).toThrow('uses the embedded engine already');
}, LIMIT);`;

// Runs the file of tests with `source` by `words` of the runner, in a project of its own: what it
// says, and a reader of the files that it leaves.
function run(t, name, words, { file = 'meeting.test.mjs', source }) {
  const project = temporaryDirectory(t);
  mkdirSync(path.join(project, 'node_modules'));
  for (const [linked, target] of [
    ['tessel-wrapper', repository],
    ['vitest', packageFile('vitest')],
  ]) {
    symlinkSync(target, path.join(project, 'node_modules', linked));
  }
  writeFileSync(path.join(project, 'package.json'), '{ "private": true }');
  writeFileSync(path.join(project, file), source);
  const env = { ...process.env };
  delete env.NODE_TEST_CONTEXT; // a runner in a test of another would run nothing
  const { status, stdout, stderr } = spawnSync(
    process.execPath,
    [...PROGRAMS[name], ...words.split(' '), file],
    { cwd: project, encoding: 'utf8', env, timeout: 120_000, killSignal: 'SIGKILL' },
  );
  assert.equal(status, 0, stderr);
  return { stdout, stderr, read: (left) => readFileSync(path.join(project, left), 'utf8') };
}

const IMPORT = "import { Meeting } from 'tessel-wrapper';";
const NATIVE_LINE = /TesselWrapper::TesselWrapper Params params.szLogPath: \/tmp$/m;

function expectMixed(stdout) {
  assert.match(stdout, NATIVE_LINE);
  assert.throws(() => JSON.parse(stdout), SyntaxError);
}

test('the guide has a command for each of the runners', () => {
  assert.deepEqual(Object.keys(COMMANDS).sort(), ['jest', 'mocha', 'node', 'vitest']);
});

test('mocha reports in JSON into a file, which it cannot on the standard output', (t) => {
  const source = IMPORT + JOINS.replace(', LIMIT)', ').timeout(60_000)');
  const { stdout, stderr, read } = run(t, 'mocha', COMMANDS.mocha, { source });
  assert.equal(stderr, '');
  assert.match(stdout, NATIVE_LINE);
  assert.equal(JSON.parse(read('report.json')).stats.passes, 1);
  expectMixed(run(t, 'mocha', '--reporter json', { source }).stdout);
});

test('node reports in TAP into a file', (t) => {
  const source = `import { it } from 'node:test';${IMPORT}${JOINS.replace(', LIMIT', '')}`;
  const { stderr, read } = run(t, 'node', COMMANDS.node, { source });
  assert.equal(stderr, '');
  assert.match(read('report.tap'), /^ok 1 - joins$/m);
  assert.match(read('report.tap'), /^# fail 0$/m);
});

const withLimit = (source) => source.replaceAll('LIMIT', '60_000');

test('jest reports in JSON into a file, of meetings in fake time and of copies', (t) => {
  const source = withLimit(
    `const { Meeting } = require('tessel-wrapper');${JOINS}
    ${JOINS_IN_FAKE_TIME.replaceAll('FAKE', 'jest')}${JOINS_WITH_COPIES}`,
  );
  const test = { file: 'meeting.test.js', source };
  const { stdout, read } = run(t, 'jest', COMMANDS.jest, test);
  assert.match(stdout, NATIVE_LINE);
  const { numPassedTests, numTotalTests } = JSON.parse(read('report.json'));
  assert.deepEqual([numPassedTests, numTotalTests], [3, 3]);
  expectMixed(run(t, 'jest', '--json', test).stdout);
});

test('vitest reports in JSON into a file, of meetings in fake time', (t) => {
  const source = withLimit(
    `import { expect, it, vi } from 'vitest';${IMPORT}${JOINS}
    ${JOINS_IN_FAKE_TIME.replaceAll('FAKE', 'vi')}`,
  );
  const { stdout, read } = run(t, 'vitest', COMMANDS.vitest, { source });
  assert.match(stdout, NATIVE_LINE);
  const { numPassedTests, numTotalTests } = JSON.parse(read('report.json'));
  assert.deepEqual([numPassedTests, numTotalTests], [2, 2]);
});
