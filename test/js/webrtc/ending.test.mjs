// Processes and engines that end while they are in a call of a real SFU, or on the way into one.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { describe, test } from 'node:test';
import { text } from 'node:stream/consumers';
import { fileURLToPath } from 'node:url';

import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { openMember, remote, startServer } from '../../support/webrtc_room.mjs';

const program = fileURLToPath(
  new URL('../../support/processes/ending_member.mjs', import.meta.url),
);
const SMALL = { width: 320, height: 180, maxFPS: 15 };

const WAYS = {
  destroyed: { code: 0 },
  exitInListener: { code: 7 },
  thrownInListener: { code: 1, error: 'RangeError: thrown to end' },
  notDestroyed: { code: 0 },
  workerTerminated: { code: 0 },
  loadedTwice: { code: 0 },
  cacheCleared: { code: 0 },
};

describe('a process that ends in a call', () => {
  for (const [way, expected] of Object.entries(WAYS)) {
    test(`${way}: it ends with its code, and is gone at the others`, async (t) => {
      const server = await startServer(t, { rooms: { meeting: {} } });
      const witness = await openMember(t, { capture: SMALL });
      const uri = (camera) => server.uri('meeting', { camera, microphone: 'tone:440' });
      assert.deepEqual(await witness.does('join', uri('card:1')), { connected: true });

      const child = spawn(process.execPath, [program, way, temporaryDirectory(t), uri('card:2')], {
        env: { ...process.env, PULSE_SERVER: 'unix:/nowhere' },
        stdio: ['ignore', 'ignore', 'pipe', 'pipe'],
      });
      t.after(() => child.kill('SIGKILL'));
      const [stderr, said, [code, signal]] = await Promise.all([
        text(child.stderr),
        text(child.stdio[3]),
        once(child, 'close'),
      ]);
      assert.deepEqual({ code, signal }, { code: expected.code, signal: null }, stderr);
      assert.equal(said, 'in the call');
      if (expected.error) assert.ok(stderr.includes(expected.error), stderr);
      else assert.equal(stderr, '');
      await witness.does('seen', 'streamAdded', remote(0));
      await witness.does('seen', 'streamRemoved', remote(0));
    });
  }
});
