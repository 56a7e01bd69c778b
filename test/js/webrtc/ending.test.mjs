// Processes and engines that end while they are in a call of a real SFU, or on the way into one.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { test } from 'node:test';
import { text } from 'node:stream/consumers';
import { fileURLToPath } from 'node:url';

import { JanusAdministrator } from '../../support/janus_administrator.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { remote } from '../../support/streams.mjs';
import { WAYS_TO_END } from '../../support/ways_to_end.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const program = fileURLToPath(
  new URL('../../support/processes/ending_member.mjs', import.meta.url),
);
const warming = fileURLToPath(
  new URL('../../support/processes/warming_member.mjs', import.meta.url),
);
const SMALL = { width: 320, height: 180, maxFPS: 15 };
const ROOM = 'meeting';

const MOMENTS = process.env.LD_PRELOAD ? 3 : 10;
// A join takes about a tenth of a second.
const STEP_MS = process.env.LD_PRELOAD ? 100 : 30;

// A server that keeps who went without a word for longer than a test may take.
const startPatientServer = (t) => startServer(t, { rooms: { [ROOM]: {} }, reclaimSeconds: 3600 });

const uriOf = (server, detail) =>
  server.uri(ROOM, { camera: `card:${detail}`, microphone: 'tone:440' });

test('a process that exits while its engine is made ready ends with its code', async (t) => {
  for (let moment = 0; moment < MOMENTS; ++moment) {
    const child = spawn(process.execPath, [warming, temporaryDirectory(t), `${10 * moment}`], {
      env: { ...process.env, PULSE_SERVER: 'unix:/nowhere' },
      stdio: ['ignore', 'ignore', 'pipe'],
    });
    const [stderr, [code, signal]] = await Promise.all([text(child.stderr), once(child, 'close')]);
    assert.deepEqual({ code, signal }, { code: 3, signal: null }, stderr);
  }
});

test('a process that ends in a call ends with its code, and is gone at the others', async (t) => {
  const server = await startPatientServer(t);
  const witness = await openMember(t, { capture: SMALL });
  assert.deepEqual(await witness.does('join', uriOf(server, 1)), { connected: true });

  for (const [way, expected] of Object.entries(WAYS_TO_END)) {
    await t.test(way, async (inner) => {
      await witness.does('forget');
      const child = spawn(
        process.execPath,
        [program, way, temporaryDirectory(inner), uriOf(server, 2)],
        {
          env: { ...process.env, PULSE_SERVER: 'unix:/nowhere' },
          stdio: ['ignore', 'ignore', 'pipe', 'pipe'],
        },
      );
      inner.after(() => child.kill('SIGKILL'));
      const [stderr, said, [code, signal]] = await Promise.all([
        text(child.stderr),
        text(child.stdio[3]),
        once(child, 'close'),
      ]);
      assert.deepEqual({ code, signal }, { code: expected.code, signal: null }, stderr);
      assert.equal(said, 'in the call');
      if (expected.error) assert.ok(stderr.includes(expected.error), stderr);
      await witness.does('seen', 'streamAdded', remote(0));
      await witness.does('seen', 'streamRemoved', remote(0));
    });
  }
});

test('an engine that is destroyed at any moment of a join leaves nothing', async (t) => {
  const server = await startPatientServer(t);
  const administrator = await JanusAdministrator.connect(t, server);
  const witness = await openMember(t, { capture: SMALL });
  assert.deepEqual(await witness.does('join', uriOf(server, 1)), { connected: true });
  const member = await openMember(t, { capture: SMALL });
  // What GLib and GStreamer keep for the process is there after a first call.
  assert.deepEqual(await member.does('join', uriOf(server, 2)), { connected: true });
  await member.does('leave');

  const held = await member.does('abandonJoin', uriOf(server, 2), 0);
  for (let moment = 1; moment <= MOMENTS; ++moment) {
    const milliseconds = moment * STEP_MS;
    const left = await member.does('abandonJoin', uriOf(server, 2), milliseconds, held);
    assert.deepEqual(left, held, `after ${milliseconds} ms`);
  }
  let there;
  do {
    ({ participants: there } = await administrator.ask({
      request: 'listparticipants',
      room: ROOM,
    }));
  } while (there.length > 1);
});
