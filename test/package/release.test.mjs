// The package as npm packs it: installed from its tarball into an empty project, built there with
// its own command, and used for a short meeting; and the files that an image needs.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, readdirSync, statSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { temporaryDirectory } from '../support/temporary_directory.mjs';
import { repository } from '../support/build.mjs';

const MEETING = `
import { Meeting, copyI420 } from 'tessel-wrapper';

const meeting = await Meeting.open({ logPath: '/dev/null' });
await meeting.join({ uri: 'tessel:demo?participants=1&size=64x36' });
for await (const frame of meeting.frames({ type: 'remote', streamIndex: 0 })) {
  console.log('bytes:', copyI420(frame).length);
  break;
}
await meeting.leave();
meeting.close();
`;

// The standard output of a program that ends without an error. Its environment has no reference to
// this repository's build.
function run(directory, command, ...args) {
  const environment = { ...process.env, LD_PRELOAD: '' };
  for (const name of ['TESSEL_BUILD', 'TESSEL_WRAPPER_ADDON']) delete environment[name];
  const { status, signal, error, stdout, stderr } = spawnSync(command, args, {
    cwd: directory,
    env: environment,
    encoding: 'utf8',
    timeout: 500_000,
    killSignal: 'SIGKILL',
  });
  if (error) throw error;
  assert.deepEqual([status, signal], [0, null], `${command} ${args.join(' ')}\n${stdout}${stderr}`);
  return stdout;
}

// Asserts that the project in this directory can run a meeting.
function expectMeeting(directory) {
  writeFileSync(path.join(directory, 'meeting.mjs'), MEETING);
  const lines = run(directory, process.execPath, 'meeting.mjs').split('\n');
  assert.ok(lines.includes('bytes: 3456'));
}

const bytesIn = (directory) =>
  readdirSync(directory, { recursive: true })
    .map((name) => statSync(path.join(directory, name)))
    .reduce((sum, found) => sum + (found.isFile() ? found.size : 0), 0);

test('an installed package builds itself and takes part in a meeting', (t) => {
  const directory = temporaryDirectory(t);
  run(repository, 'npm', 'pack', '--pack-destination', directory);
  const [tarball] = readdirSync(directory);

  const project = path.join(directory, 'project');
  mkdirSync(project);
  writeFileSync(path.join(project, 'package.json'), '{ "private": true }');
  run(project, 'npm', 'install', '--prefer-offline', '--no-audit', '--no-fund', `../${tarball}`);
  const installed = readdirSync(path.join(project, 'node_modules/tessel-wrapper'));
  assert.ok(installed.includes('LICENSE'));
  for (const name of ['build', 'test', 'bench', 'examples']) {
    assert.ok(!installed.includes(name), name);
  }

  const command = path.join(project, 'node_modules/.bin/tessel-wrapper');
  run(project, command, 'build');
  expectMeeting(project);
  const built = path.join(project, 'node_modules/tessel-wrapper/build');
  assert.deepEqual(readdirSync(built, { recursive: true }).sort(), [
    'release',
    'release/libtesselclient.so',
    'release/tesselWrapper.node',
    'setup-release.log',
  ]);

  // An image with only the files of the package that the guide names.
  const image = path.join(directory, 'image');
  const layer = path.join(image, 'node_modules/tessel-wrapper');
  mkdirSync(layer, { recursive: true });
  const guide = readFileSync(path.join(repository, 'docs/guide.md'), 'utf8');
  const [, script] = guide.match(/^```sh layer\.sh\n(.*?)^```$/ms);
  writeFileSync(path.join(directory, 'layer.sh'), script);
  run(project, 'sh', '../layer.sh', 'node_modules/tessel-wrapper', layer);
  assert.deepEqual(readdirSync(layer).sort(), ['bin', 'build', 'js', 'package.json']);
  assert.ok(bytesIn(layer) < 1.5e6, `${bytesIn(layer)} bytes`);
  expectMeeting(image);
  run(image, process.execPath, 'node_modules/tessel-wrapper/bin/tessel-wrapper.js', 'doctor');
});
