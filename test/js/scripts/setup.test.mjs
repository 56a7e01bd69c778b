// The requirements that the set-up reports, on a machine with almost nothing installed.

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { cpSync, existsSync, mkdirSync, symlinkSync, writeFileSync } from 'node:fs';
import { createInterface } from 'node:readline';
import path from 'node:path';
import { test } from 'node:test';

import { temporaryDirectory } from '../../support/temporary_directory.mjs';

// Even the smallest system has these.
const ESSENTIAL = 'bash chmod dirname env flock grep head mkdir rm sed sort tail unshare'.split(
  ' ',
);

// A tree of its own, with an `apt-get` that installs nothing: what to spawn the set-up with.
function makeTree(t) {
  const tree = temporaryDirectory(t);
  const commands = path.join(tree, 'commands');
  mkdirSync(commands);
  cpSync('scripts', path.join(tree, 'scripts'), { recursive: true });
  const find = (name) =>
    process.env.PATH.split(':')
      .map((directory) => path.join(directory, name))
      .find(existsSync);
  for (const name of ESSENTIAL) symlinkSync(find(name), path.join(commands, name));
  // It looks for the headers beside node.
  for (const name of ['node', 'npm', 'apt-get']) {
    const script = name === 'node' ? `exec '${process.execPath}' "$@"` : '';
    writeFileSync(path.join(commands, name), `#!/bin/sh\n${script}\n`, { mode: 0o755 });
  }
  // A shell crashes under a sanitizer's runtime.
  return { cwd: tree, env: { PATH: commands }, encoding: 'utf8' };
}

const setUp = (t, ...given) => spawnSync('bash', ['scripts/setup.sh', ...given], makeTree(t));

const TO_BUILD = ['cmake', 'g++', 'ninja-build', 'nlohmann-json3-dev'];
const TO_MEET = [
  ...['libgstreamer1.0-dev', 'libgstreamer-plugins-bad1.0-dev'],
  ...['libgstreamer-plugins-base1.0-dev', 'libsoup-3.0-dev', 'pkg-config'],
  ...['libxcb-composite0-dev', 'libxcb-randr0-dev'],
];
const TO_TEST_METHODS = ['chromium', 'ffmpeg', 'libgmock-dev', 'libgtest-dev'];
const TO_TEST_MEETINGS = [
  ...['coturn', 'openssl', 'pulseaudio', 'pulseaudio-utils'],
  ...['x11-apps', 'x11-utils', 'x11-xserver-utils', 'xvfb'],
];
const TO_TEST = [
  ...[...TO_TEST_METHODS, ...TO_TEST_MEETINGS],
  ...['dbus-daemon', 'pipewire-bin', 'wireplumber'],
];
// Chromium's sandbox is not needed everywhere, not every Debian has a Janus, and HAProxy and the
// plugins are looked for where the system keeps them.
const DEPENDING_ON_SYSTEM = /^(chromium-sandbox|haproxy|janus|gstreamer1\.0-.*)$/;
const TO_FUZZ = [
  ...['clang', 'libclang-rt-dev', 'llvm'],
  // What descriptions of sessions are read with.
  ...['libgstreamer-plugins-base1.0-dev', 'pkg-config'],
];

for (const [given, packages] of [
  [['release', '--for', 'start'], TO_BUILD],
  [
    ['release', '--for', 'webrtc'],
    [...TO_BUILD, ...TO_MEET],
  ],
  [['release'], [...TO_BUILD, ...TO_TEST]],
  [['asan'], [...TO_BUILD, ...TO_TEST_METHODS, ...TO_TEST_MEETINGS]],
  [['clang'], [...TO_BUILD, ...TO_TEST_METHODS, 'clang']],
  [
    ['fuzz', '--for', 'fuzz'],
    [...TO_BUILD, ...TO_FUZZ],
  ],
  [
    ['release', 'fuzz', '--for', 'fuzz'],
    [...TO_BUILD, ...TO_TEST, ...TO_FUZZ],
  ],
]) {
  test(`"setup.sh ${given.join(' ')}" names everything that is missing, and builds nothing`, (t) => {
    const { status, stdout, stderr } = setUp(t, ...given);
    const named = /apt-get install -y --no-install-recommends ([^":]+)/.exec(stderr);
    assert.ok(named, stderr);
    const needed = named[1].trim().split(' ');
    assert.deepEqual(
      needed.filter((name) => !DEPENDING_ON_SYSTEM.test(name)),
      [...new Set(packages)].sort(),
    );
    assert.equal(status, 1);
    assert.doesNotMatch(stdout, /Building|Fetching/);
  });
}

for (const given of [
  [],
  ['elsewhere'],
  ['release', '--for'],
  ['release', '--for', 'elsewhere'],
  ['release', '--for', 'test', 'elsewhere'],
]) {
  test(`"setup.sh ${given.join(' ')}" is refused with the usage`, (t) => {
    const { status, stderr } = setUp(t, ...given);
    assert.equal(status, 1);
    assert.match(stderr, /^setup: usage: scripts\/setup\.sh /);
  });
}

test('a set-up waits for another one in the same clone, and says so', async (t) => {
  const tree = makeTree(t);
  mkdirSync(path.join(tree.cwd, 'build'));
  const other = spawn('flock', ['build', 'bash', '-c', 'echo held; read'], tree);
  t.after(() => other.stdin.end());
  await once(other.stdout, 'data');
  const child = spawn('bash', ['scripts/setup.sh', 'release', '--for', 'start'], tree);
  t.after(() => child.kill());
  const errors = child.stderr.toArray();
  const ended = once(child, 'close');
  const [line] = await once(createInterface({ input: child.stdout }), 'line');
  assert.equal(line, 'waiting for another set-up');
  assert.equal(child.exitCode, null);
  other.stdin.end();
  assert.deepEqual(await ended, [1, null]);
  assert.match((await errors).join(''), /apt-get install/);
});
