// Rooms on two real SFUs behind a real HAProxy, as examples/operating/ configures them.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { sfuToken } from '../../../examples/operating/sfu_token.mjs';
import { SECRETS, startServers } from '../../support/operating.mjs';
import { remote } from '../../support/streams.mjs';
import { openMember } from '../../support/webrtc_room.mjs';

const ROOMS = ['red', 'green room', 'blue/1'];
const CAPTURE = { width: 160, height: 90, maxFPS: 10 };

// A process in a room, whose test card has `detail`.
async function joinedMember(t, balancer, room, detail) {
  const member = await openMember(t, { capture: CAPTURE });
  const token = sfuToken(SECRETS.token, 1);
  const uri = balancer.uri(room, { camera: `card:${detail}`, microphone: 'tone:440', token });
  const joined = await member.does('join', uri, { endpointName: `${detail}` });
  assert.deepEqual(joined, { connected: true });
  return member;
}

test('a balancer needs a room, whose name may be escaped in several ways', async (t) => {
  const { balancer } = await startServers(t, []);
  await assert.rejects(balancer.reach(''), /400/);
  for (const escaped of ['a%20b', 'a+b', '%61%20b']) await balancer.reach(`?room=${escaped}`);
  assert.match(await balancer.serverOf('a b'), /^sfu[12]$/);
  assert.match(await balancer.does('show table sfus'), /used:1\n/);
});

test('a balancer tells which servers are up, and nothing else, where its metrics are', async (t) => {
  const { balancer } = await startServers(t, []);
  const metrics = await (await fetch(balancer.metrics)).text();
  for (const server of ['sfu1', 'sfu2']) {
    const isUp = `haproxy_server_status{proxy="sfus",server="${server}",state="UP"} 1`;
    assert.ok(metrics.split('\n').includes(isUp), metrics);
  }
  assert.equal((await fetch(new URL('/', balancer.metrics))).status, 403);
});

test('three rooms use two servers; a drained one takes no new room and loses no call', async (t) => {
  const { balancer } = await startServers(t, ROOMS);
  const members = await Promise.all(
    ROOMS.map((room, index) => joinedMember(t, balancer, room, index)),
  );
  const servers = await Promise.all(ROOMS.map((room) => balancer.serverOf(room)));
  assert.deepEqual([...new Set(servers)].sort(), ['sfu1', 'sfu2']);

  const [drained] = servers;
  assert.equal(await balancer.does(`set server sfus/${drained} state drain`), '');
  const rooms = Array.from({ length: 8 }, (_, index) => `new${index}`);
  for (const room of rooms) {
    await balancer.reach(`?room=${room}`);
    assert.notEqual(await balancer.serverOf(room), drained);
  }
  // Who joins its room meets the others there.
  const late = await joinedMember(t, balancer, ROOMS[0], 9);
  assert.equal((await late.does('picture', remote(0))).card.detail, 0);
  assert.equal((await members[0].does('picture', remote(0))).card.detail, 9);
  for (const member of members) {
    const events = await member.does('events');
    assert.ok(!events.some(([name]) => name === 'callDisconnect'));
  }
});

test('the meetings of a server that is killed go on at the other one, with the same streams', async (t) => {
  const { balancer, sfus } = await startServers(t, ROOMS);
  const [room, other] = ROOMS.slice(1);
  const members = [];
  for (const detail of [1, 2, 3]) members.push(await joinedMember(t, balancer, room, detail));
  const unaffected = await joinedMember(t, balancer, other, 4);
  const killed = await balancer.serverOf(room);
  assert.notEqual(await balancer.serverOf(other), killed);
  // Whose picture each of them has in which stream.
  const pictures = () =>
    Promise.all(
      members.map(async (member) => {
        const shown = [];
        for (const index of [0, 1]) {
          shown.push((await member.does('picture', remote(index))).card.detail);
        }
        return shown;
      }),
    );
  const before = await pictures();
  assert.deepEqual(
    before.map((shown) => shown.toSorted()),
    [
      [2, 3],
      [1, 3],
      [1, 2],
    ],
  );

  await sfus[killed].stop();
  for (const member of members) {
    for (const up of [false, true]) {
      for (const mediaType of ['video', 'audio']) {
        await member.does('seen', 'noRtpMedia', { mediaType, up });
      }
    }
  }
  assert.deepEqual(await pictures(), before);
  assert.equal(await balancer.serverOf(room), await balancer.serverOf(other));
  for (const member of [...members, unaffected]) {
    const names = (await member.does('events')).map(([name]) => name);
    assert.equal(names.filter((name) => name === 'callConnectionStatus').length, 1);
    assert.ok(!names.includes('callDisconnect'));
    assert.equal(names.includes('noRtpMedia'), member !== unaffected);
  }
});
