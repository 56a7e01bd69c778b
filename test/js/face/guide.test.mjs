// The examples of the guide: each is a program that runs to its end.

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { existsSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { readCard } from '../../support/card_code.mjs';
import { ffmpeg } from '../../support/ffmpeg.mjs';
import { filesNamedIn } from '../../support/shared_memory/shared_memory_names.mjs';
import { build } from '../../support/build.mjs';
import { directory, examples, guide, variant } from '../../support/guide.mjs';

// Each example's own lines of output; the engine's notices stand among them.
const OUTPUT = {
  'join.mjs': [
    'refused: the meeting refused the join 403',
    'stream remote 0',
    'stream remote 1',
    'left: the call was left',
  ],
  'frames.mjs': ['shown: 5'],
  'layout.mjs': ['tile: 0 640 x 360', 'tile: 1 160 x 90'],
  'share.mjs': ['monitor: 1920 x 1080', 'sharing', 'not shared: failed'],
  'pop_out.mjs': ['pictures: 5', 'widget ended: 0'],
  'application.test.mjs': ['# pass 2'],
  'open_meetings.mjs': ['not closed, Error: opened here'],
  'engine.mjs': [`ok       engine ${build}/libtesselclient.so`],
  'production.mjs': ['too slow: Joining took longer than 100 ms', 'in hand: remote-0 0'],
};
// Started by other examples.
const PARTS = ['widget.mjs', 'redirected_child.mjs'];
// With tests of their own: below, and in test/picture_server/.
const TESTED_APART = ['logging.mjs', 'redirected.mjs', 'recorder.mjs', 'server.mjs'];
const BUNDLERS = ['esbuild.mjs', 'rollup.config.mjs', 'webpack.config.mjs', 'vite.config.mjs'];

for (const [name, source] of examples) writeFileSync(path.join(directory, name), source);

test('every JavaScript example of the guide has a name and is tested', () => {
  assert.deepEqual(
    [...examples.keys()].sort(),
    [...Object.keys(OUTPUT), ...PARTS, ...TESTED_APART, ...BUNDLERS].sort(),
  );
  assert.equal(guide.match(/^```js/gm).length, examples.size);
});

// Runs it to its end.
function run(name) {
  return spawnSync(process.execPath, ['--test-reporter=tap', path.join(directory, name)], {
    cwd: directory,
    // Set where `node --test` runs this file, it would change how the program's tests report.
    env: { ...process.env, NODE_TEST_CONTEXT: undefined },
    encoding: 'utf8',
    timeout: 60_000,
    killSignal: 'SIGKILL',
  });
}

// Runs it, expects it to end without an error with these lines in its output, and returns the
// output.
function expectRun(name, lines) {
  const { status, signal, stdout, stderr } = run(name);
  assert.deepEqual([status, signal, stderr], [0, null, '']);
  const said = stdout.split('\n');
  for (const line of lines) assert.ok(said.includes(line), `${line}\nis not in\n${stdout}`);
  return said;
}

for (const [name, lines] of Object.entries(OUTPUT)) {
  test(`${name} runs and prints the expected lines`, () => expectRun(name, lines));
}

const NATIVE_LINE = /^TesselWrapper::TesselWrapper Params params.szLogPath: \/tmp$/m;

test('logging.mjs keeps its lines apart from the native ones', () => {
  const { status, stdout, stderr } = run('logging.mjs');
  assert.equal(status, 0, stderr);
  assert.equal(JSON.parse(stderr).msg, 'opened');
  assert.match(stdout, NATIVE_LINE);
});

test('redirected.mjs keeps the native lines of its child out of its own output', () => {
  const { status, stdout, stderr } = run('redirected.mjs');
  assert.deepEqual([status, stderr], [0, '']);
  assert.deepEqual(JSON.parse(stdout), { type: 'remote', streamIndex: 0 });
  assert.match(readFileSync(path.join(directory, 'diagnostics.log'), 'utf8'), NATIVE_LINE);
});

// How the program ends that sends itself `signal` when it has joined, and how many names it leaves.
function joinAndEndBy(signal, { withHandler }) {
  const program = variant('join.mjs', {
    'await present;': `process.kill(process.pid, '${signal}'); await new Promise(() => {});`,
  });
  const handler = /^for \(const name of .*?^}\n/ms;
  assert.match(program, handler);
  const file = path.join(directory, 'ended.mjs');
  writeFileSync(file, withHandler ? program : program.replace(handler, ''));
  const child = spawnSync(process.execPath, [file], { encoding: 'utf8' });
  const names = filesNamedIn(child.stdout.split('\n'));
  assert.equal(names.length, 2);
  const left = names.filter(existsSync);
  for (const name of left) rmSync(name);
  return { status: child.status, signal: child.signal, left: left.length };
}

test('the signal handler of join.mjs removes the names in /dev/shm', () => {
  for (const [signal, number] of [
    ['SIGINT', 2],
    ['SIGTERM', 15],
    ['SIGHUP', 1],
  ]) {
    assert.deepEqual(joinAndEndBy(signal, { withHandler: true }), {
      status: 128 + number,
      signal: null,
      left: 0,
    });
    assert.deepEqual(joinAndEndBy(signal, { withHandler: false }), {
      status: null,
      signal,
      left: 2,
    });
  }
});

// The program terminates itself at that moment, in which it would otherwise wait or go on.
for (const [moment, statement, terminating, lines] of [
  ['joins', 'timeout: 100', 'timeout: (terminate(), 2 ** 31 - 1)', []],
  ['shows frames', '>= 10) break', '>= 10) terminate()', ['in hand: remote-0 0']],
]) {
  test(`production.mjs ends cleanly when it is terminated while it ${moment}`, () => {
    const source = examples.get('production.mjs');
    assert.ok(source.includes(statement));
    const terminate =
      "function terminate() { terminate = () => {}; process.kill(process.pid, 'SIGTERM'); }";
    const program = `${source.replace(statement, terminating)}${terminate}`;
    writeFileSync(path.join(directory, 'terminated.mjs'), program);
    expectRun('terminated.mjs', ['ended: asked to end', ...lines]);
  });
}

// The pictures of a recording: their luminance, 640 x 360.
function luminanceOf(recording) {
  const file = path.join(directory, 'luminance.raw');
  ffmpeg('-y', '-i', recording, '-f', 'rawvideo', '-pix_fmt', 'gray', file);
  const bytes = readFileSync(file);
  const size = 640 * 360;
  return Array.from({ length: bytes.length / size }, (_, index) =>
    bytes.subarray(index * size, (index + 1) * size),
  );
}

// The number of the test card in a picture that was scaled up from this height; 'black' without
// one.
function cardIn(luminance, height) {
  if (luminance.every((value) => value < 24)) return 'black';
  const scale = 360 / height;
  const width = 640 / scale;
  const yPlaneBuffer = new Uint8Array(width * height);
  for (let at = 0; at < yPlaneBuffer.length; at += 1) {
    const row = Math.floor(at / width) * scale;
    yPlaneBuffer[at] = luminance[row * 640 + (at % width) * scale];
  }
  return readCard({ width, height, yPlaneBuffer, yPlaneBufferStride: width })?.number;
}

// A sanitizer's runtime is for node alone.
const NODE_ALONE = { '{ stdio:': "{ env: { ...process.env, LD_PRELOAD: '' }, stdio:" };

test('recorder.mjs keeps its rate through a mute and a change of size', () => {
  const small = `{
    VideoStreamState: {
      VideoStreamInfos: meeting.streams.map(({ csrc }) => ({
        ssrc: csrc, participantSsrc: csrc, speakerGroup: 0, priority: 1,
      })),
      VideoOccupancyConstraints: [[{ maxquality: 180 }]],
    },
  }`;
  const source = variant('recorder.mjs', {
    'start ??= frame.receivedAt;': `
      start ??= frame.receivedAt;
      console.log('frame', frame.frameId, frame.height ?? 0, frame.receivedAt - start);
      if (frame.noUpdate) meeting.wrapper.updateVideoStreamsState(${small});`,
    'const { width, height } = frame;': `
      const { width, height } = frame;
      if (height === 180 && ++smallOnes === 10) {
        picture = copyI420(frame);
        break;
      }`,
    'let written = 0;': 'let smallOnes = 0; let written = 0;',
    // Longer than a busy machine may let it stand still.
    'videomute=0@1-2&leave=0@3': 'videomute=0@1-5',
    ...NODE_ALONE,
  });
  writeFileSync(path.join(directory, 'recorded.mjs'), source);
  const said = expectRun('recorded.mjs', []);
  const frames = said
    .filter((line) => line.startsWith('frame '))
    .map((line) => line.split(' ').slice(1).map(Number))
    .map(([number, height, time]) => ({ number, height, slot: Math.round((time * 30) / 1000) }));
  const heights = frames.map(({ height }) => height);
  for (const height of [360, 0, 180]) assert.ok(heights.includes(height), `${height} rows`);
  const [, written] = said.join('\n').match(/^pictures: (\d+)$/m);
  const pictures = luminanceOf(path.join(directory, 'recording.ts'));
  assert.equal(pictures.length, Number(written));
  // Each picture is that of the last frame before its time.
  frames.forEach(({ number, height, slot }, index) => {
    const next = frames[index + 1]?.slot ?? pictures.length;
    for (const picture of pictures.slice(slot, next)) {
      assert.equal(cardIn(picture, height || 360), height === 0 ? 'black' : number);
    }
  });
});

for (const [what, replacements, ending] of [
  // Its code for this is 1 up to version 6, and 8 from version 7 on.
  ['fails', { "'libx264'": "'nothing'" }, /^Error: ffmpeg ended with [18]$/m],
  [
    'is killed',
    { 'return { width,': "ffmpeg.kill('SIGKILL'); return { width," },
    /^Error: ffmpeg ended with SIGKILL$/m,
  ],
  ['is not there', { "'ffmpeg',": "'no-ffmpeg'," }, /^Error: spawn no-ffmpeg ENOENT$/m],
]) {
  test(`recorder.mjs fails when ffmpeg ${what}`, () => {
    const source = variant('recorder.mjs', { '&leave=0@3': '', ...NODE_ALONE, ...replacements });
    writeFileSync(path.join(directory, 'failing.mjs'), source);
    const { status, stdout, stderr } = run('failing.mjs');
    assert.equal(status, 1, stderr);
    assert.match(stderr, ending);
    assert.deepEqual(filesNamedIn(stdout.split('\n')).filter(existsSync), []);
  });
}

test('recorder.mjs ends well by Ctrl-C, which a terminal sends to all of its group', async () => {
  const source = variant('recorder.mjs', {
    '&leave=0@3': '',
    ...NODE_ALONE,
    'start ??= frame.receivedAt;': `
      start ??= frame.receivedAt;
      if (written >= 10) process.kill(-process.pid, 'SIGINT');`,
  });
  const file = path.join(directory, 'interrupted.mjs');
  writeFileSync(file, source);
  // The first of a group of its own.
  const child = spawn(process.execPath, [file], { cwd: directory, detached: true });
  let said = '';
  child.stdout.on('data', (data) => (said += data));
  let complaints = '';
  child.stderr.on('data', (data) => (complaints += data));
  const outcome = await once(child, 'close');
  assert.deepEqual([...outcome, complaints], [0, null, '']);
  const [, written] = said.match(/^pictures: (\d+)$/m);
  assert.equal(luminanceOf(path.join(directory, 'recording.ts')).length, Number(written));
});
