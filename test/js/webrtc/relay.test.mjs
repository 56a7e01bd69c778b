// Calls through relays.

import assert from 'node:assert/strict';
import { once } from 'node:events';
import { readFileSync, readdirSync, readlinkSync } from 'node:fs';
import { connect } from 'node:net';
import { test } from 'node:test';

import { freePort, ownAddress } from '../../../examples/sfu/janus_server.mjs';
import { makeCertificate } from '../../support/certificates.mjs';
import { LOCAL, remote } from '../../support/streams.mjs';
import { startTurnServer } from '../../support/turn_server.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

// A join through a relay takes about a fifth of a second.
const MOMENTS_MS = [80, 160, 240];
// What a relay's description has and nobody reads.
const UNUSED = { priority: 0, bandwidth: 0 };

for (const protocol of ['udp', 'tcp', 'tls']) {
  test(`pictures are received through a relay over ${protocol}`, async (t) => {
    const server = await startServer(t, { rooms: { meeting: {} } });
    const certificate = protocol === 'tls' && makeCertificate(t, `IP:${ownAddress()}`);
    const parameters = certificate && { authority: certificate.authority };
    const { used, stop, goOn, ...relay } = await startTurnServer(t, { certificate });
    const turnServers = [{ ...UNUSED, ...relay, protocol, fqdn: '' }];
    const members = await Promise.all([openMember(t), openMember(t)]);
    const answers = await Promise.all(
      members.map((member, index) =>
        member.does(
          'join',
          server.uri('meeting', {
            camera: `card:${index + 1}`,
            microphone: 'tone:440',
            ...parameters,
          }),
          { forceTurn: true, turnServers },
        ),
      ),
    );
    assert.deepEqual(answers, [{ connected: true }, { connected: true }]);
    const seen = await Promise.all(members.map((member) => member.does('picture', remote(0))));
    assert.deepEqual(
      seen.map(({ card }) => card?.detail),
      [2, 1],
    );
    // Each member sends over one connection and receives over another.
    await used(4);

    // Nothing goes another way: what is sent while the relay is stopped is not received.
    stop();
    const last = await Promise.all(members.map(standsStill));
    goOn();
    await Promise.all(
      members.map((member, index) => member.does('picture', remote(0), last[index])),
    );
  });
}

// Resolves to the identifier of the last frame that the member shows of the other, once none has
// followed while both captured and sent another thirty.
async function standsStill(member, index, members) {
  for (let before; ;) {
    const { frameId } = await member.does('picture', remote(0));
    if (frameId === before) return frameId;
    before = frameId;
    await Promise.all(members.map((each) => each.does('pictures', LOCAL, 30)));
  }
}

// A room, a relay over tls, and what a call through it alone needs.
async function startRelayedRoom(t) {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const certificate = makeCertificate(t, 'DNS:relay.example');
  const { address, port, username, password } = await startTurnServer(t, { certificate });
  const relay = { ...UNUSED, protocol: 'tls', fqdn: 'relay.example', address, port };
  const uri = (parameters) =>
    server.uri('meeting', { camera: 'card:1', microphone: 'tone:440', ...parameters });
  const { authority } = certificate;
  return { relay: { ...relay, username, password }, uri, authority };
}

test('a call that may use relays only ends at once when none can be used', async (t) => {
  const { relay, uri, authority } = await startRelayedRoom(t);
  const closedPort = await freePort(relay.address);
  const member = await openMember(t);
  const join = (turnServers, parameters = { authority }) =>
    member.does('join', uri(parameters), { forceTurn: true, turnServers });
  const REFUSED = 'its certificate is refused';

  for (const [what, turnServer, parameters, reason] of [
    ['of an unknown authority', relay, {}, REFUSED],
    ['with the certificate of another', { ...relay, fqdn: '' }, { authority }, REFUSED],
    ['that is not there', { ...relay, port: closedPort }, {}, 'it cannot be reached: '],
    ['with an invalid port', { ...relay, port: 65_536 }, {}, 'the port is invalid'],
    ['with another password', { ...relay, password: 'guess' }, { authority }],
    ['that is not described'],
  ]) {
    await t.test(`a relay ${what}`, async () => {
      const before = (await member.does('log')).length;
      const { code, reason: told } = await join(turnServer ? [turnServer] : [], parameters);
      assert.deepEqual([code, told], [504, 'no TURN server can be used']);
      const log = (await member.does('log')).slice(before);
      if (reason) {
        const { address, port } = turnServer;
        const line = `the TURN server ${address}:${port} is not used: ${reason}`;
        assert.equal(log.split(line).length, 2, log);
      }
      for (const secret of [relay.username, relay.password]) assert.ok(!log.includes(secret), log);
    });
  }

  await t.test('and goes on with one that can be used', async () => {
    const unusable = { ...relay, port: closedPort };
    assert.deepEqual(await join([unusable, relay]), { connected: true });
  });
});

// Of 127.0.0.1, on which this process listens.
function listeningPorts(pid) {
  const sockets = new Set(
    readdirSync(`/proc/${pid}/fd`).map((name) => {
      try {
        return readlinkSync(`/proc/${pid}/fd/${name}`);
      } catch {
        // Closed since it was listed.
        return undefined;
      }
    }),
  );
  return readFileSync(`/proc/${pid}/net/tcp`, 'latin1')
    .split('\n')
    .map((line) => line.trim().split(/\s+/))
    .filter(([, address, , state, , , , , , inode]) => {
      const isListening = state === '0A' && address.startsWith('0100007F:');
      return isListening && sockets.has(`socket:[${inode}]`);
    })
    .map(([, address]) => Number.parseInt(address.split(':')[1], 16));
}

test('no other process reaches a relay over tls through a call', async (t) => {
  const { relay, uri, authority } = await startRelayedRoom(t);
  const member = await openMember(t);
  const joined = await member.does('join', uri({ authority }), {
    ...{ forceTurn: true, turnServers: [relay] },
  });
  assert.deepEqual(joined, { connected: true });
  const ports = listeningPorts(member.pid);
  assert.equal(ports.length, 1);
  const stranger = connect(ports[0], '127.0.0.1').resume();
  await once(stranger, 'close');
  await member.does('leave');
  assert.deepEqual(listeningPorts(member.pid), []);
});

test('an engine that is destroyed while it joins through a relay over tls leaves nothing', async (t) => {
  const { relay, uri, authority } = await startRelayedRoom(t);
  const member = await openMember(t);
  const options = { forceTurn: true, turnServers: [relay] };
  assert.deepEqual(await member.does('join', uri({ authority }), options), { connected: true });
  await member.does('leave');
  const held = await member.does('abandonJoin', uri({ authority }), 0, undefined, options);
  for (const milliseconds of MOMENTS_MS) {
    const left = await member.does('abandonJoin', uri({ authority }), milliseconds, held, options);
    assert.deepEqual(left, held, `after ${milliseconds} ms`);
  }
});
