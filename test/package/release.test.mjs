// The package as npm packs it: installed from its tarball into an empty project and used there for a
// short meeting, with the binaries that it brings and with those that it builds itself; and the files
// that an image needs.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, readdirSync, statSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { before, test } from 'node:test';

import { repository } from '../support/build.mjs';
import { environmentOfNode, pack, run } from '../support/packed.mjs';
import { temporaryDirectory } from '../support/temporary_directory.mjs';

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
const SHIPPED = [
  'libtesselclient.so',
  'tesselWrapper.node',
  'webrtc/examine_webrtc_engine',
  'webrtc/libtesselclient.so',
  'webrtc/tesselWrapper.node',
];
// The newest versions of symbols on Ubuntu 22.04, of the C library and of C++'s.
const NEWEST = { GLIBC: '2.34', GLIBCXX: '3.4.30', CXXABI: '1.3.13' };

let directory;
let project;
let installed;
let withoutCompiler;
let packing;

before((t) => {
  directory = temporaryDirectory(t);
  withoutCompiler = environmentOfNode(path.join(directory, 'commands'));
  const tarball = pack(directory);
  packing = readFileSync(path.join(repository, 'build/prepack.log'), 'utf8');
  project = path.join(directory, 'project');
  installed = path.join(project, 'node_modules/tessel-wrapper');
  mkdirSync(project);
  writeFileSync(path.join(project, 'package.json'), '{ "private": true }');
  const options = ['--prefer-offline', '--no-audit', '--no-fund'];
  run(project, withoutCompiler, 'npm', 'install', ...options, tarball);
});

// Asserts that a project in this directory can run a meeting, with an addon in this place of the
// package.
function expectMeeting(place, build, environment) {
  writeFileSync(path.join(place, 'meeting.mjs'), MEETING);
  const lines = run(place, environment, process.execPath, 'meeting.mjs').split('\n');
  assert.ok(lines.includes('bytes: 3456'));
  const home = path.join(place, 'node_modules/tessel-wrapper');
  const found = run(
    place,
    environment,
    process.execPath,
    `${home}/bin/tessel-wrapper.js`,
    'doctor',
  );
  for (const [what, name] of [
    ['addon', 'tesselWrapper.node'],
    ['engine', 'libtesselclient.so'],
  ]) {
    assert.ok(found.includes(`ok       ${what} ${path.join(home, build, name)}\n`), found);
  }
}

const bytesIn = (place) =>
  readdirSync(place, { recursive: true })
    .map((name) => statSync(path.join(place, name)))
    .reduce((sum, found) => sum + (found.isFile() ? found.size : 0), 0);

const filesIn = (place) =>
  readdirSync(place, { recursive: true })
    .filter((name) => statSync(path.join(place, name)).isFile())
    .sort();

// What a program of the compiler's says of a file.
function output(command, ...args) {
  const { status, error, stdout } = spawnSync(command, args, { encoding: 'latin1' });
  if (error) throw error;
  assert.equal(status, 0);
  return stdout;
}

test('an installed package takes part in a meeting where there is no compiler', () => {
  const there = readdirSync(installed);
  assert.ok(there.includes('LICENSE'));
  for (const name of ['build', 'test', 'bench', 'examples']) assert.ok(!there.includes(name), name);
  assert.deepEqual(filesIn(path.join(installed, 'prebuilt/linux-x64')), SHIPPED);
  for (const name of ['g++', 'cc', 'cmake']) {
    assert.equal(spawnSync(name, { env: withoutCompiler }).error.code, 'ENOENT', name);
  }
  expectMeeting(project, 'prebuilt/linux-x64', withoutCompiler);
});

test('what the package brings needs no newer system than the documents say, or packing says so', () => {
  const order = new Intl.Collator('en', { numeric: true });
  for (const name of SHIPPED) {
    const symbols = output('objdump', '-T', path.join(installed, 'prebuilt/linux-x64', name));
    const versions = [...symbols.matchAll(/\((GLIBC|GLIBCXX|CXXABI)_([\d.]+)\)/g)];
    assert.ok(versions.length > 0, name);
    for (const [, family, version] of versions) {
      assert.ok(
        order.compare(version, NEWEST[family]) <= 0 || packing.includes(`more than ${family}_`),
        `${name} needs ${family}_${version}`,
      );
    }
  }
});

test('the debug information is packed apart, and belongs to what the package brings', () => {
  const { version } = JSON.parse(readFileSync(path.join(installed, 'package.json'), 'utf8'));
  const archive = path.join(repository, `build/tessel-wrapper-${version}-linux-x64-debug.tar.gz`);
  output('tar', '-xf', archive, '-C', directory);
  const identity = (file) => output('readelf', '-n', file).match(/Build ID: (\w+)/)[1];
  for (const name of SHIPPED) {
    const shipped = path.join(installed, 'prebuilt/linux-x64', name);
    const symbols = path.join(directory, 'linux-x64', `${name}.debug`);
    assert.equal(identity(symbols), identity(shipped));
    assert.match(output('readelf', '-S', symbols), /\.debug_info/);
    const sections = output('readelf', '-S', shipped);
    assert.doesNotMatch(sections, /\.debug_info/);
    assert.match(sections, /\.gnu_debuglink/);
  }
});

test('an image with the files that the guide names takes part in a meeting', () => {
  const image = path.join(directory, 'image');
  const layer = path.join(image, 'node_modules/tessel-wrapper');
  mkdirSync(layer, { recursive: true });
  const guide = readFileSync(path.join(repository, 'docs/guide.md'), 'utf8');
  const [, script] = guide.match(/^```sh layer\.sh\n(.*?)^```$/ms);
  writeFileSync(path.join(directory, 'layer.sh'), script);
  run(project, {}, 'sh', '../layer.sh', 'node_modules/tessel-wrapper', layer);
  assert.deepEqual(readdirSync(layer).sort(), ['bin', 'js', 'package.json', 'prebuilt']);
  assert.ok(bytesIn(layer) < 1.5e6, `${bytesIn(layer)} bytes`);
  expectMeeting(image, 'prebuilt/linux-x64', withoutCompiler);
});

test('an installed package builds itself from its sources, and uses that build', () => {
  run(project, {}, path.join(project, 'node_modules/.bin/tessel-wrapper'), 'build');
  expectMeeting(project, 'build/release', {});
  assert.deepEqual(filesIn(path.join(installed, 'build')), [
    'release/libtesselclient.so',
    'release/tesselWrapper.node',
    'setup-release.log',
  ]);
});
