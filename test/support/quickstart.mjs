// The project to start from, examples/quickstart/, as a person runs it.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { cpSync } from 'node:fs';
import path from 'node:path';
import { createInterface } from 'node:readline';

import { repository } from './build.mjs';
import { readCard } from './card_code.mjs';

export function copyQuickstart(directory) {
  cpSync(path.join(repository, 'examples/quickstart'), directory, { recursive: true });
}

// Starts a program of the project in this directory. Answers, when it shows its meeting, with the
// page's address. It is ended with the test.
export async function startQuickstart(t, directory, environment, program, ...args) {
  const env = { ...process.env, LD_PRELOAD: '', ...environment };
  for (const name of ['TESSEL_BUILD', 'TESSEL_WRAPPER_ADDON']) delete env[name];
  const child = spawn(process.execPath, [program, ...args], {
    ...{ cwd: directory, env },
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  const ended = once(child, 'exit');
  t.after(async () => {
    child.kill('SIGTERM');
    assert.deepEqual(await ended, [128 + 15, null]);
  });
  let address;
  for await (const line of createInterface({ input: child.stdout })) {
    [, address] = line.match(/^The meeting is shown at (.*)$/) ?? [];
    if (address) break;
  }
  assert.ok(address, `${program} ended early`);
  child.stdout.resume(); // the end of the loop has paused it
  return address;
}

// The pictures that the program gives to its page: { key, name, width, height, card }.
async function pictures(address, get) {
  const bytes = new Uint8Array(await (await get(`${address}pictures`)).arrayBuffer());
  let at = bytes.indexOf(10) + 1;
  const all = JSON.parse(new TextDecoder().decode(bytes.subarray(0, at))).map((picture) => {
    const { width, height } = picture;
    const yPlaneBuffer = bytes.subarray(at);
    at += width * height + 2 * Math.ceil(width / 2) * Math.ceil(height / 2);
    return {
      ...picture,
      card: readCard({ width, height, yPlaneBuffer, yPlaneBufferStride: width }),
    };
  });
  assert.equal(at, bytes.length);
  return all;
}

// The same, once there are pictures of these streams, each a test card and with the name of its
// participant. `get` is used in place of fetch().
export async function picturesOf(address, keys, get = fetch) {
  for (;;) {
    const all = await pictures(address, get);
    const found = keys.map((key) => all.find((picture) => picture.key === key));
    if (found.every((picture) => picture?.card && picture.name !== picture.key)) return found;
  }
}
