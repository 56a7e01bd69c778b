// The example for the terminal, in a separate process.

import assert from 'node:assert/strict';
import { execFile, spawn } from 'node:child_process';
import { once } from 'node:events';
import { existsSync, readFileSync } from 'node:fs';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { PNG } from 'pngjs';

import '../../support/build.mjs'; // names the addon for the example
import { ffmpeg } from '../../support/ffmpeg.mjs';
import { filesNamedIn } from '../../support/shared_memory/shared_memory_names.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';

const EXAMPLE = fileURLToPath(new URL('../../../examples/terminal_meeting.mjs', import.meta.url));

// Resolves with the example's output and the directory of its pictures.
async function run(t, ...options) {
  const output = temporaryDirectory(t);
  const { stdout } = await promisify(execFile)(process.execPath, [
    ...[EXAMPLE, '--seconds', '1.5', '--output', output],
    ...options,
  ]);
  return { stdout, output };
}

const picture = (output, stream) => PNG.sync.read(readFileSync(path.join(output, `${stream}.png`)));

test('the terminal example prints the events, a table of all streams, and a picture of each', async (t) => {
  const { stdout, output } = await run(t);
  for (const name of ['callConnectionStatus', 'streamAdded', 'contentReceive', 'callDisconnect']) {
    assert.match(stdout, new RegExp(`^event ${name} `, 'm'));
  }
  for (const stream of ['local-0', 'remote-0', 'remote-1', 'remote-2', 'remote-3', 'content-0']) {
    const row = stdout.split('\n').find((line) => line.includes(`'${stream}'`));
    assert.ok(row, `${stream} is in the table`);
    const [, size, frames] = /'(\d+x\d+)' *│ *(\d+)/.exec(row);
    assert.ok(Number(frames) > 0, stream);
    const { width, height } = picture(output, stream);
    assert.equal(`${width}x${height}`, size);
  }
});

test('a widget, which is another process, sees one of the streams too', async (t) => {
  const { stdout } = await run(t);
  const rowOf = (stream) => {
    const row = stdout.split('\n').find((line) => line.includes(`'${stream}'`));
    const [, size, frames, rate] = /'(\d+x\d+)' *│ *(\d+) *│ *([\d.]+)/.exec(row);
    return { size, frames: Number(frames), rate: Number(rate) };
  };
  const main = rowOf('remote-0');
  const widget = rowOf('remote-0, in the widget');
  assert.equal(widget.size, main.size);
  assert.ok(widget.frames > 0 && widget.rate > 0, JSON.stringify(widget));
  // Both processes printed their lines, and each has its own mapping of the same segment.
  const opened = stdout.match(/^getVideoFrameSource: opening video .* shm name:(\/\w+)/m);
  assert.ok(
    stdout.includes(`enableSharedMemory: Creating shared video mem with SHMname:${opened[1]}`),
  );
  const pids = new Set(stdout.match(/(?<=^SharedMemoryVideoFrameSource:.* pid:)\w+/gm));
  assert.equal(pids.size, 2);
});

test('with --video the participants show the clip', async (t) => {
  const clip = path.join(temporaryDirectory(t), 'green.y4m');
  const source = ['-f', 'lavfi', '-i', 'color=c=0x00ff00:size=96x54:rate=25:duration=1'];
  ffmpeg(...source, '-pix_fmt', 'yuv420p', clip);
  const { output } = await run(t, '--video', clip);
  const { width, height, data } = picture(output, 'remote-0');
  assert.deepEqual([width, height], [96, 54]);
  const [red, green, blue] = data.subarray(4 * (27 * 96 + 48));
  assert.ok(red < 10 && green > 245 && blue < 10, `${red} ${green} ${blue}`);
});

test('a clip that cannot be played is reported with the reason, and the exit code is 1', async (t) => {
  await assert.rejects(run(t, '--video', '/no/such/clip.y4m'), (error) => {
    assert.equal(error.code, 1);
    assert.match(error.stdout, /^event callDisconnect .*"reason":"the clip cannot be opened/m);
    return true;
  });
});

for (const [signal, code] of [
  ['SIGINT', 130],
  ['SIGTERM', 143],
  ['SIGHUP', 129],
]) {
  test(`${signal} ends the terminal example, and leaves nothing in /dev/shm`, async (t) => {
    const options = ['--seconds', '600', '--output', temporaryDirectory(t)];
    // Its processes are a group of their own, as those of a terminal are.
    const child = spawn(process.execPath, [EXAMPLE, ...options], {
      stdio: ['ignore', 'pipe', 'inherit'],
      detached: true,
    });
    const ended = once(child, 'close');
    t.after(() => child.kill('SIGKILL'));
    const lines = [];
    for await (const line of createInterface({ input: child.stdout })) {
      lines.push(line);
      // The widget has the stream's segment.
      if (line.startsWith('getVideoFrameSource: opening video')) process.kill(-child.pid, signal);
    }
    assert.deepEqual(await ended, [code, null]);
    const files = filesNamedIn(lines);
    assert.notDeepEqual(files, []);
    assert.deepEqual(files.filter(existsSync), []);
  });
}
