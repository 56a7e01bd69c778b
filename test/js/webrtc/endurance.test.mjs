// What a process holds when it has been in many calls of a real SFU.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { openMember, startServer } from '../../support/webrtc_room.mjs';

// A young generation of JavaScript's heap that does not grow.
const FRUGAL = { NODE_OPTIONS: '--max-semi-space-size=1' };
const SMALL = { width: 320, height: 180, maxFPS: 15 };
const CALLS = 104;

test('a process joins and leaves a hundred times without growth', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const uri = (detail) =>
    server.uri('meeting', { camera: `card:${detail}`, microphone: 'tone:440' });
  const other = await openMember(t, { capture: SMALL });
  assert.deepEqual(await other.does('join', uri(1)), { connected: true });
  const member = await openMember(t, { capture: SMALL, environment: FRUGAL });
  const figures = await member.does('joinAgainAndAgain', uri(2), CALLS);
  t.diagnostic(JSON.stringify(figures));
});
