// A server that stops answering, or reading, while a process joins or is in a call: the engine can be
// destroyed at once, and leaves nothing.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';

import { ownAddress } from '../../../examples/sfu/janus_server.mjs';
import { makeCertificate } from '../../support/certificates.mjs';
import { FakeSfu, publisher } from '../../support/fake_sfu.mjs';
import { JanusAdministrator } from '../../support/janus_administrator.mjs';
import { nextTurn } from '../../support/next_turn.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const SMALL = { width: 320, height: 180, maxFPS: 15 };
const SOURCES = { camera: 'card:1', microphone: 'tone:440' };
// In the order in which they are answered.
const KINDS = ['created', 'attached', 'joined', 'published', 'offered', 'started'];
// Far below the 10 seconds for which the engine waits for an answer.
const AT_ONCE_MS = 5_000;
const MEGABYTE = 1 << 20;

test('an engine is destroyed at once, whatever the server has not answered', async (t) => {
  const sfu = await FakeSfu.start(t);
  sfu.publishers = [publisher('Ada')];
  const member = await openMember(t, { capture: SMALL });
  const destroyedAt = async (kind, expected) => {
    const asked = sfu.asked(kind);
    await member.does('startAnother', sfu.uri());
    await asked;
    return member.does('destroyAnother', expected);
  };
  // What GLib and GStreamer keep for the process is there after a first call.
  await destroyedAt('started');
  const { held } = await destroyedAt('created');
  for (const silent of KINDS) {
    await t.test(silent, async () => {
      sfu.replies = (kind, answer) =>
        KINDS.indexOf(kind) >= KINDS.indexOf(silent) ? [] : [answer];
      const left = await destroyedAt(silent, held);
      assert.deepEqual(left.held, held);
      assert.ok(left.milliseconds < AT_ONCE_MS, `${left.milliseconds} ms`);
    });
  }
});

test('an engine is destroyed at once when its server has been stopped', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const member = await openMember(t, { capture: SMALL });
  const uri = server.uri('meeting', SOURCES);
  const joined = async () => {
    await member.does('forget');
    await member.does('startAnother', uri);
    await member.does('seen', 'callConnectionStatus', { connected: true });
  };
  await joined();
  await member.does('destroyAnother');
  await joined();
  const { held } = await member.does('destroyAnother');
  await joined();
  process.kill(server.pid, 'SIGSTOP');
  const left = await member.does('destroyAnother', held);
  assert.deepEqual(left.held, held);
  assert.ok(left.milliseconds < AT_ONCE_MS, `${left.milliseconds} ms`);
});

test('a participant who is removed holds nothing of the call', async (t) => {
  const server = await startServer(t);
  const administrator = await JanusAdministrator.connect(t, server);
  const room = { room: 'meeting', secret: 's' };
  await administrator.ask({ request: 'create', ...room });
  const member = await openMember(t, { capture: SMALL });
  const uri = server.uri('meeting', SOURCES);
  assert.deepEqual(await member.does('join', uri), { connected: true });
  await member.does('leave');
  const held = await member.does('held');
  assert.deepEqual(await member.does('join', uri), { connected: true });
  const { participants } = await administrator.ask({ request: 'listparticipants', ...room });
  await administrator.ask({ request: 'kick', ...room, id: participants[0].id });
  await member.does('seen', 'callDisconnect', { callId: 2, code: 410 });
  assert.deepEqual(await member.does('held', held), held);
});

// How many bytes wait in the system to be sent to this port.
function bytesUnsent(port) {
  const lines = readFileSync('/proc/net/tcp', 'latin1').trim().split('\n').slice(1);
  const waiting = lines
    .map((line) => line.trim().split(/\s+/))
    .map(([, , remote, , queues]) => ({
      port: Number.parseInt(remote.split(':')[1], 16),
      bytes: Number.parseInt(queues.split(':')[0], 16),
    }));
  return Math.max(0, ...waiting.filter((each) => each.port === port).map(({ bytes }) => bytes));
}

test('an engine is destroyed at once when its server reads nothing over TLS', async (t) => {
  const certificate = makeCertificate(t, `IP:${ownAddress()}`);
  const sfu = await FakeSfu.start(t, certificate);
  const uri = sfu.uri({ authority: certificate.authority });
  const member = await openMember(t, { capture: SMALL });
  let socket;
  sfu.on('connection', (opened) => (socket = opened));
  sfu.on('request', (kind) => kind === 'attached' && socket.pause());
  // More than the system takes for a connection.
  await member.does('startAnother', uri, { endpointName: 'x'.repeat(16 * MEGABYTE) });
  const port = Number(new URL(uri.replace('janus+', '')).port);
  while (bytesUnsent(port) < MEGABYTE) await nextTurn();
  await member.does('destroyAnother');
});
