// Members of a room of a real SFU whose signalling ends without the server's knowledge.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { JanusAdministrator } from '../../support/janus_administrator.mjs';
import { MediaRelay } from '../../support/media_relay.mjs';
import { remote } from '../../support/streams.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const SMALL = { width: 320, height: 180, maxFPS: 15 };
const source = (detail) => ({ camera: `card:${detail}`, microphone: 'tone:440' });

async function joined(t, place, detail, endpointName) {
  const member = await openMember(t, { capture: SMALL });
  const uri = place.uri('meeting', source(detail));
  assert.deepEqual(await member.does('join', uri, { endpointName }), { connected: true });
  return member;
}

const names = async (member) => (await member.does('events')).map(([name]) => name);

async function comesBackAsTheSame(t) {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const administrator = await JanusAdministrator.connect(t, server);
  const ids = async () => {
    const { participants } = await administrator.ask({
      request: 'listparticipants',
      room: 'meeting',
    });
    return participants.map(({ id }) => id).sort();
  };
  const relay = await MediaRelay.start(t, server);
  const ada = await joined(t, server, 1, 'Ada');
  const zoe = await joined(t, relay, 2, 'Zoë');
  const bob = await joined(t, server, 3, 'Bob');
  const pictures = async () => {
    const shown = [];
    for (const member of [ada, zoe, bob]) {
      for (const index of [0, 1]) shown.push((await member.does('picture', remote(index))).card);
    }
    return shown.map(({ detail }) => detail);
  };
  const [shown, there] = [await pictures(), await ids()];
  for (const member of [ada, zoe, bob]) await member.does('forget');

  relay.dropMembers();
  for (const up of [false, true]) {
    for (const mediaType of ['video', 'audio']) {
      await zoe.does('seen', 'noRtpMedia', { mediaType, up });
    }
  }
  assert.deepEqual(await pictures(), shown);
  assert.deepEqual(await ids(), there);
  assert.ok(!(await names(zoe)).includes('callDisconnect'));
  for (const member of [ada, bob]) {
    // Zoë has left once, and has come back once.
    const changes = (await names(member)).filter((name) => /^stream(Added|Removed)/.test(name));
    assert.deepEqual(changes, ['streamRemoved', 'streamAdded']);
  }
}

async function givesUp(t) {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const relay = await MediaRelay.start(t, server);
  const member = await joined(t, relay, 1, 'Ada');
  let isOver = false;
  const end = member.does('seen', 'callDisconnect').finally(() => (isOver = true));
  // Commands run one beside the other.
  while (!isOver) {
    await member.does('forget');
    relay.dropMembers();
    await Promise.race([end, member.does('seen', 'noRtpMedia', { mediaType: 'audio', up: true })]);
  }
  const { code, reason } = await end;
  assert.equal(code, 503);
  assert.match(reason, /^the server was lost: /);
}

test('a member who is lost while the server takes it for present', { concurrency: true }, (t) =>
  Promise.all([
    t.test('comes back as the same', comesBackAsTheSame),
    t.test('gives up when it is lost again as soon as it is back', givesUp),
  ]),
);
