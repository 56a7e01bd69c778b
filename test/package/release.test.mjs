// The package as npm packs it: installed from its tarball into the project to start from and used
// there for meetings, with the binaries that it brings and with those that it builds itself; and the
// files that an image needs.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import {
  mkdirSync,
  readFileSync,
  readdirSync,
  statSync,
  symlinkSync,
  writeFileSync,
} from 'node:fs';
import path from 'node:path';
import { before, test } from 'node:test';
import { transformSync } from 'esbuild';

import { repository } from '../support/build.mjs';
import { openBrowser } from '../support/meeting_app/browser.mjs';
import { cardOn, openPage } from '../support/meeting_app/meeting_page.mjs';
import { environmentOfNode, pack, run } from '../support/packed.mjs';
import { copyQuickstart, picturesOf, startQuickstart } from '../support/quickstart.mjs';
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
  project = path.join(directory, 'project');
  installed = path.join(project, 'node_modules/tessel-wrapper');
  copyQuickstart(project);
  pack(project); // under the name that the project's package.json has
  packing = readFileSync(path.join(repository, 'build/prepack.log'), 'utf8');
  // What it needs for development comes from the repository, below: nothing is fetched for it.
  const description = path.join(project, 'package.json');
  const { devDependencies, ...rest } = JSON.parse(readFileSync(description, 'utf8'));
  assert.deepEqual(Object.keys(devDependencies), ['@types/node', 'typescript']);
  writeFileSync(description, JSON.stringify(rest));
  const options = ['--prefer-offline', '--no-audit', '--no-fund'];
  run(project, withoutCompiler, 'npm', 'install', ...options);
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
  for (const name of ['build', 'test', 'bench']) assert.ok(!there.includes(name), name);
  assert.deepEqual(readdirSync(path.join(installed, 'examples')), ['quickstart']);
  assert.deepEqual(filesIn(path.join(installed, 'prebuilt/linux-x64')), SHIPPED);
  for (const name of ['g++', 'cc', 'cmake']) {
    assert.equal(spawnSync(name, { env: withoutCompiler }).error.code, 'ENOENT', name);
  }
  expectMeeting(project, 'prebuilt/linux-x64', withoutCompiler);
});

const KEYS = ['local-0', 'remote-0', 'remote-1', 'remote-2', 'remote-3'];
const keyOf = ({ type, streamIndex }) => `${type}-${streamIndex}`;

// What `npm run` does by this name, after a compilation.
function programOf(script) {
  const { scripts } = JSON.parse(readFileSync(path.join(project, 'package.json'), 'utf8'));
  const [, program] = scripts[script].match(/^(?:tsc && )?node (\S+)$/);
  return program;
}

test('the project to start from shows its meeting on a page', async (t) => {
  const address = await startQuickstart(t, project, withoutCompiler, programOf('start'));
  const { page, errors } = await openPage(t, await openBrowser(t), address);
  await page.locator(`figure:nth-child(${KEYS.length})`).waitFor();
  const given = await picturesOf(address, KEYS);
  assert.equal(given[0].name, 'me');
  const shown = [];
  for (let place = 1; place <= KEYS.length; place += 1) {
    const tile = `figure:nth-child(${place})`;
    const first = await cardOn(page, `${tile} canvas`);
    await cardOn(page, `${tile} canvas`, ({ number }) => number > first.number); // it moves
    const { name } = given.find(({ key }) => key === keyOf(first));
    await page.locator(`${tile} figcaption`, { hasText: new RegExp(`^${name}$`) }).waitFor();
    shown.push(keyOf(first));
  }
  assert.deepEqual(shown.sort(), KEYS);
  assert.deepEqual(errors, []);
});

test('the address of the page is secret', async (t) => {
  const address = await startQuickstart(t, project, withoutCompiler, programOf('start'));
  for (const place of ['/', '/pictures', `/${crypto.randomUUID()}/pictures`]) {
    assert.equal((await fetch(new URL(place, address))).status, 404, place);
  }
});

test('the project in TypeScript compiles with strict checks and shows its meeting', async (t) => {
  for (const name of ['@types/node', 'undici-types']) {
    const link = path.join(project, 'node_modules', name);
    mkdirSync(path.dirname(link), { recursive: true });
    symlinkSync(path.join(repository, 'node_modules', name), link);
  }
  run(project, {}, path.join(repository, 'node_modules/.bin/tsc'));
  const address = await startQuickstart(t, project, withoutCompiler, programOf('start:ts'));
  for (const { key, card } of await picturesOf(address, KEYS)) assert.equal(keyOf(card), key);
});

test('the main process for Electron gives its page the meeting, where Electron is a stand-in', () => {
  const electron = path.join(project, 'node_modules/electron');
  mkdirSync(electron);
  writeFileSync(path.join(electron, 'package.json'), '{ "main": "index.mjs" }');
  const standIn = path.join(repository, 'test/support/electron_stand_in.mjs');
  symlinkSync(standIn, path.join(electron, 'index.mjs'));
  const said = run(project, withoutCompiler, process.execPath, 'src/electron.mjs').split('\n');
  assert.ok(said.includes(`shown: ${KEYS.join(' ')}`), said.join('\n'));
});

test('the two programs of the project differ in types alone', () => {
  const [plain, typed] = ['mjs', 'ts'].map((extension) => {
    const source = readFileSync(path.join(project, `src/main.${extension}`), 'utf8');
    const loader = extension === 'ts' ? 'ts' : 'js';
    return transformSync(source, { loader, format: 'esm', minifyWhitespace: true }).code;
  });
  assert.equal(typed, plain);
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
