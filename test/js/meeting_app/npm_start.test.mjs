// `npm start`, with a set-up that does nothing.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import {
  copyFileSync,
  existsSync,
  mkdirSync,
  readFileSync,
  readdirSync,
  symlinkSync,
  writeFileSync,
} from 'node:fs';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import '../../support/build.mjs'; // names the addon for the meeting

const repository = fileURLToPath(new URL('../../..', import.meta.url));

// A tree in which `npm start` sets up nothing. npm looks for commands in node_modules/.bin first:
// the `node` there has the sanitizer's runtime, under which shells crash.
function treeIn(directory) {
  const write = (name, lines) => {
    mkdirSync(path.join(directory, path.dirname(name)), { recursive: true });
    writeFileSync(path.join(directory, name), ['#!/bin/sh', ...lines, ''].join('\n'), {
      mode: 0o755,
    });
  };
  copyFileSync(path.join(repository, 'package.json'), path.join(directory, 'package.json'));
  symlinkSync(path.join(repository, 'examples'), path.join(directory, 'examples'));
  write('scripts/setup.sh', []);
  write('node_modules/.bin/node', [
    `LD_PRELOAD='${process.env.LD_PRELOAD ?? ''}' exec '${process.execPath}' "$@"`,
  ]);
  return directory;
}

// The process of the group `leader` that runs the meeting.
function meetingIn(leader) {
  const isMeeting = (pid) => {
    try {
      const group = readFileSync(`/proc/${pid}/stat`, 'latin1').split(') ').at(-1).split(' ')[2];
      const [, program] = readFileSync(`/proc/${pid}/cmdline`, 'utf8').split('\0');
      return Number(group) === leader && program === 'examples/meeting/main.mjs';
    } catch {
      return false; // it has ended
    }
  };
  return readdirSync('/proc').find((pid) => /^\d+$/.test(pid) && isMeeting(pid));
}

for (const signal of ['SIGINT', 'SIGTERM']) {
  test(`${signal} to npm ends the meeting`, { timeout: 60_000 }, async (t) => {
    const tree = treeIn(temporaryDirectory(t));
    const npm = spawn('npm', ['start', '--', '--uri', 'tessel:test'], {
      cwd: tree,
      env: { ...process.env, LD_PRELOAD: '' },
      stdio: ['ignore', 'pipe', 'inherit'],
      detached: true,
    });
    const ended = once(npm, 'exit');
    let meeting = npm.pid; // until it has started
    t.after(() => {
      if (existsSync(`/proc/${meeting}`)) process.kill(-npm.pid, 'SIGKILL');
    });
    for await (const line of createInterface({ input: npm.stdout })) {
      if (line.startsWith('The meeting is at ')) break;
    }
    npm.stdout.resume();
    meeting = meetingIn(npm.pid);
    assert.ok(meeting);
    npm.kill(signal);
    await ended;
    assert.equal(existsSync(`/proc/${meeting}`), false);
  });
}
