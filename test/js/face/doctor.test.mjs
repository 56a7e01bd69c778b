// npx tessel-wrapper: the checks of the doctor, and their output.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { chmodSync, copyFileSync, cpSync, existsSync, mkdirSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { addonFile, build, repository } from '../../support/build.mjs';
import { requireFace } from '../../support/face.mjs';

const { checkNode, checkRights, checkSpace, examine, report } = requireFace('./doctor.js');

const COMMAND = path.join(repository, 'bin/tessel-wrapper.js');

function run(args, environment = {}) {
  const { status, stdout, stderr } = spawnSync(process.execPath, [COMMAND, ...args], {
    env: { ...process.env, ...environment },
    encoding: 'utf8',
  });
  return { status, lines: stdout.split('\n'), stderr };
}

const texts = (findings) => findings.map(({ text }) => text);

test('on a suitable machine the doctor names the node, the addon and the engine', () => {
  const { lines, stderr } = run(['doctor']);
  assert.equal(stderr, '');
  assert.deepEqual(lines.slice(0, 4), [
    `ok       node ${process.versions.node} on linux x64`,
    `ok       addon ${addonFile}, which TESSEL_WRAPPER_ADDON names`,
    `ok       engine ${build}/libtesselclient.so`,
    'ok       /dev/shm: may be written to',
  ]);
  assert.match(
    lines[4],
    /^ok {7}\/dev\/shm: [\d.]+ MB, [\d.]+ MB free, room for streams in widget mode: \d+$/,
  );
});

test("an addon that cannot be loaded is a problem, reported with the loader's message", () => {
  const { status, lines } = run(['doctor'], { TESSEL_WRAPPER_ADDON: '/nowhere/a.node' });
  assert.equal(status, 1);
  assert.deepEqual(lines.slice(1, 3), [
    'problem  Cannot load /nowhere/a.node',
    "         -> There is no such file. TESSEL_WRAPPER_ADDON names this file: correct it, or unset it to use the package's own build.",
  ]);
});

test('an engine from another place is named with the reason', (t) => {
  const directory = temporaryDirectory(t);
  copyFileSync(path.join(build, 'libtesselclient.so'), path.join(directory, 'libtesselclient.so'));
  const { lines } = run(['doctor'], { LD_LIBRARY_PATH: directory });
  assert.deepEqual(lines.slice(2, 4), [
    `ok       engine ${directory}/libtesselclient.so`,
    `         -> It is not the one beside the addon: LD_LIBRARY_PATH is ${directory}.`,
  ]);
});

test('an engine whose path has a space is named with the whole path', (t) => {
  const directory = path.join(temporaryDirectory(t), 'My Project');
  mkdirSync(directory);
  for (const name of ['tesselWrapper.node', 'libtesselclient.so']) {
    copyFileSync(path.join(build, name), path.join(directory, name));
  }
  const { lines } = run(['doctor'], {
    TESSEL_WRAPPER_ADDON: path.join(directory, 'tesselWrapper.node'),
  });
  assert.deepEqual(lines.slice(2, 4), [
    `ok       engine ${directory}/libtesselclient.so`,
    'ok       /dev/shm: may be written to',
  ]);
});

test('an old Node.js and another platform are problems, and an untested Node.js is a warning', () => {
  const linux = { platform: 'linux', arch: 'x64' };
  const tested = 'The addon is tested with Node.js 20, 22, 24, 26.';
  for (const [given, rank, advice] of [
    [{ ...linux, version: '20.4.0' }, 'good'],
    [{ ...linux, version: '26.10.0' }, 'good'],
    [{ ...linux, version: '25.0.0' }, 'warning', tested],
    [{ ...linux, version: '100.0.0' }, 'warning', tested],
    [{ ...linux, version: '20.3.9' }, 'bad', 'Install Node.js 20.4 or newer.'],
    [{ ...linux, version: '9.11.0' }, 'bad', 'Install Node.js 20.4 or newer.'],
    [
      { ...linux, platform: 'darwin', version: '22.0.0' },
      'bad',
      'The addon runs on linux x64 alone.',
    ],
    [{ ...linux, arch: 'arm64', version: '22.0.0' }, 'bad', 'The addon runs on linux x64 alone.'],
  ]) {
    const finding = checkNode(given);
    assert.deepEqual([finding.rank, finding.advice], [rank, advice], finding.text);
  }
});

test('a /dev/shm without space for one stream is a problem', () => {
  const bsize = 4096;
  const blocks = 16384;
  assert.deepEqual(checkSpace({ bsize, blocks, bavail: 508 }), {
    rank: 'good',
    text: '/dev/shm: 67.1 MB, 2.1 MB free, room for streams in widget mode: 1',
    advice: undefined,
  });
  const { rank, advice } = checkSpace({ bsize, blocks, bavail: 507 });
  assert.equal(rank, 'bad');
  assert.match(advice, /--shm-size/);
});

test('a /dev/shm that is missing, or without the sticky bit, is a problem', (t) => {
  const directory = path.join(temporaryDirectory(t), 'shm');
  assert.match(checkRights(directory).text, /ENOENT/);
  mkdirSync(directory);
  assert.equal(checkRights(directory).rank, 'good');
  chmodSync(directory, 0o777);
  assert.deepEqual(checkRights(directory), {
    rank: 'bad',
    text: `${directory}: everybody may remove everybody's files`,
    advice: `Set the sticky bit: chmod +t ${directory}`,
  });
  chmodSync(directory, 0o1777);
  assert.equal(checkRights(directory).rank, 'good');
});

test('a problem sets the exit code, and a warning does not', () => {
  const findings = [
    { rank: 'good', text: 'fine', advice: 'but look' },
    { rank: 'warning', text: 'left over:\na file' },
  ];
  const lines = ['ok       fine', '         -> but look', 'warning  left over:', '         a file'];
  assert.deepEqual(report(findings), { lines, exitCode: 0 });
  assert.deepEqual(report([...findings, { rank: 'bad', text: 'bad' }, ...findings]), {
    lines: [...lines, 'problem  bad', ...lines],
    exitCode: 1,
  });
});

test('a successful build prints what it built and how to check it', (t) => {
  const home = temporaryDirectory(t);
  for (const part of ['bin', 'js', 'package.json']) {
    cpSync(path.join(repository, part), path.join(home, part), { recursive: true });
  }
  mkdirSync(path.join(home, 'scripts'));
  const buildWith = (script) => {
    writeFileSync(path.join(home, 'scripts/setup.sh'), `#!/bin/sh\n${script}\n`, { mode: 0o755 });
    const command = path.join(home, 'bin/tessel-wrapper.js');
    // It loads no addon, and a shell does not bear a sanitizer's runtime.
    const env = { ...process.env, LD_PRELOAD: '' };
    return spawnSync(process.execPath, [command, 'build'], { encoding: 'utf8', env });
  };
  const built = buildWith('echo "$@"');
  assert.deepEqual(
    [built.status, built.stderr, built.stdout.split('\n')],
    [
      0,
      '',
      [
        'release --for install',
        `Built ${home}/build/release/tesselWrapper.node`,
        `Built ${home}/build/release/libtesselclient.so`,
        '"npx tessel-wrapper doctor" checks it.',
        '',
      ],
    ],
  );
  const failed = buildWith('exit 3');
  assert.deepEqual([failed.status, failed.stdout], [3, '']);
  const killed = buildWith('kill -TERM $$');
  assert.deepEqual(
    [killed.status, killed.stdout, killed.stderr],
    [1, '', 'The build was ended by SIGTERM.\n'],
  );
});

test('--help prints the usage', () => {
  const { status, lines } = run(['--help']);
  assert.deepEqual([status, lines], [0, ['usage: tessel-wrapper doctor [--clean] | build', '']]);
});

test('the doctor runs every check', () => {
  assert.equal(examine().length, 6);
  assert.match(texts(examine()).at(-1), /left over/);
});

test('cleaning is answered also where there are no rights, and asking alone ends with them', (t) => {
  const directory = path.join(temporaryDirectory(t), 'shm');
  const { length } = examine({ directory });
  assert.equal(length, 4);
  const findings = examine({ directory, cleaning: true });
  assert.equal(findings.length, length + 1);
  assert.match(findings.at(-1).text, /^cannot remove what is left over: ENOENT/);
  assert.equal(findings.at(-1).rank, 'bad');
  // Where everybody may remove everybody's files, so may this user.
  mkdirSync(directory);
  chmodSync(directory, 0o777);
  const file = path.join(directory, `SHM${'a'.repeat(25)}`);
  writeFileSync(file, Buffer.alloc(26_572));
  const [rights, cleaned] = examine({ directory, cleaning: true }).slice(-2);
  assert.equal(rights.rank, 'bad');
  assert.deepEqual([cleaned.rank, cleaned.text.split('\n').at(-1)], ['good', file]);
  assert.equal(existsSync(file), false);
});

test('anything but its commands is answered with the usage', () => {
  for (const args of [
    [],
    ['constructor'],
    ['doctor', 'now'],
    ['doctor', '--clean', 'now'],
    ['build', '--clean'],
  ]) {
    const { status, stderr } = run(args);
    assert.deepEqual([status, stderr], [2, 'usage: tessel-wrapper doctor [--clean] | build\n']);
  }
});
