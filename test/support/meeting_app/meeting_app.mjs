// The meeting application in processes of its own.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';

import '../build.mjs'; // names the addon for the processes
import { temporaryDirectory } from '../temporary_directory.mjs';

export const PROGRAM = fileURLToPath(
  new URL('../../../examples/meeting/main.mjs', import.meta.url),
);

// Starts the application until the test ends; answers with its process and its page's address.
export async function startMeetingApp(test, uri, { options = [], environment = {} } = {}) {
  const all = ['--uri', uri, '--output', temporaryDirectory(test), ...options];
  const child = spawn(process.execPath, [PROGRAM, ...all], {
    env: { ...process.env, ...environment },
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  const exit = once(child, 'exit');
  test.after(async () => {
    child.kill('SIGINT');
    await exit;
  });
  for await (const line of createInterface({ input: child.stdout })) {
    const [, address] = /^The meeting is at (\S+)$/.exec(line) ?? [];
    if (address) {
      child.stdout.resume();
      return { child, exit, address };
    }
  }
  throw new Error('the application has ended without an address');
}
