// The servers' configuration files and programs of examples/operating/, with the real servers.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { sfuToken } from '../../../examples/operating/sfu_token.mjs';
import { turnCredentials } from '../../../examples/operating/turn_credentials.mjs';
import { freePort, ownAddress } from '../../../examples/sfu/janus_server.mjs';
import { makeCertificate } from '../../support/certificates.mjs';
import {
  SECRETS,
  runExample,
  startConfiguredSfu,
  startConfiguredTurnServer,
} from '../../support/operating.mjs';
import { remote } from '../../support/streams.mjs';
import { openMember } from '../../support/webrtc_room.mjs';

const ADDRESS = '127.0.0.1';
const CAMERA = { camera: 'card:1', microphone: 'tone:440' };
const CAPTURE = { width: 320, height: 180, maxFPS: 15 };

test('rooms are made on demand, and joined with their pin and a token that has not expired', async (t) => {
  const sfu = await startConfiguredSfu(t, ADDRESS);
  const token = sfuToken(SECRETS.token, 1);
  const uri = (more) => sfu.uri('our room', { ...CAMERA, token, ...more });
  const [ada, bob] = [await openMember(t, { capture: CAPTURE }), await openMember(t)];

  assert.equal((await ada.does('join', uri({ pin: 'a pin' }))).reason, 'there is no such room');
  // It may be repeated.
  for (let time = 0; time < 2; ++time) {
    await runExample('rooms.mjs', ['create', 'our room', sfu.admin], { ROOM_PIN: 'a pin' });
  }
  for (const [parameters, reason] of [
    [{}, 'the room asks for another pin'],
    [{ pin: 'a pin', token: sfuToken('a guess', 1) }, 'the server refused the session'],
    [{ pin: 'a pin', token: sfuToken(SECRETS.token, -1) }, 'the server refused the session'],
  ]) {
    assert.equal((await ada.does('join', uri(parameters))).reason, reason);
  }
  for (const member of [ada, bob]) {
    assert.deepEqual(await member.does('join', uri({ pin: 'a pin' })), { connected: true });
  }
  const { card } = await bob.does('picture', remote(0));
  assert.equal(card.detail, 1);
});

test('the metrics count sessions, rooms, participants and connections, and tell a server that is down', async (t) => {
  const sfu = await startConfiguredSfu(t, ADDRESS);
  const uri = sfu.uri('r', { ...CAMERA, token: sfuToken(SECRETS.token, 1) });
  for (const room of ['r', 'empty']) await runExample('rooms.mjs', ['create', room, sfu.admin]);
  const [ada, bob] = [await openMember(t, { capture: CAPTURE }), await openMember(t)];
  for (const member of [ada, bob]) {
    assert.deepEqual(await member.does('join', uri), { connected: true });
  }
  const down = `http://${ADDRESS}:${await freePort(ADDRESS)}/admin`;
  const { stdout } = await runExample('metrics.mjs', [sfu.admin, down]);
  assert.deepEqual(stdout.trim().split('\n'), [
    ...Object.entries({
      ...{ up: 1, sessions: 2, rooms: 2, rooms_in_use: 1, participants: 2, connections: 4 },
    }).map(([name, figure]) => `tessel_sfu_${name}{server="${sfu.admin}"} ${figure}`),
    `tessel_sfu_up{server="${down}"} 0`,
  ]);
  const listed = await runExample('rooms.mjs', ['list', sfu.admin]);
  assert.deepEqual(listed.stdout.trim().split('\n').sort(), [
    `${sfu.admin} empty 0`,
    `${sfu.admin} r 2`,
  ]);
  for (const room of ['empty', 'empty'])
    await runExample('rooms.mjs', ['destroy', room, sfu.admin]);
  // Clients could not have made the room for content.
  await ada.does('call', 'requestContentShareToken');
  await ada.does('seen', 'screenShareStatus', { status: 'token_granted' });
  const left = await runExample('rooms.mjs', ['list', sfu.admin]);
  assert.equal(left.stdout, `${sfu.admin} r 2\n`);
});

test('rooms are made at the servers that are up, the others are named, and the secrets are needed', async (t) => {
  const sfu = await startConfiguredSfu(t, ADDRESS);
  const down = `http://${ADDRESS}:${await freePort(ADDRESS)}/admin`;
  await assert.rejects(runExample('rooms.mjs', ['create', 'r', down, sfu.admin]), ({ stderr }) => {
    assert.match(stderr, new RegExp(`^${down}: connect ECONNREFUSED`));
    return true;
  });
  const { stdout } = await runExample('rooms.mjs', ['list', sfu.admin]);
  assert.equal(stdout, `${sfu.admin} r 0\n`);

  for (const [wrong, reason] of [
    [{ JANUS_ADMIN_SECRET: 'a guess' }, /Unauthorized/],
    [{ JANUS_ADMIN_KEY: 'a guess' }, /admin_key/],
  ]) {
    await assert.rejects(
      runExample('rooms.mjs', ['create', 'r', sfu.admin], wrong),
      ({ stderr }) => {
        assert.match(stderr, reason);
        return true;
      },
    );
  }
});

test('the TURN server relays to the SFU for who has a credential that has not expired', async (t) => {
  const address = ownAddress();
  const certificate = makeCertificate(t, `IP:${address}`);
  const turn = await startConfiguredTurnServer(t, certificate, address);
  const elsewhere = await startConfiguredTurnServer(t, certificate, '192.0.2.1');
  const sfu = await startConfiguredSfu(t, ADDRESS);
  await runExample('rooms.mjs', ['create', 'r', sfu.admin]);
  const token = sfuToken(SECRETS.token, 1);
  const uri = sfu.uri('r', { ...CAMERA, token, authority: certificate.authority });
  const { stdout } = await runExample('turn_credentials.mjs', ['Ada', '1']);
  const printed = JSON.parse(stdout);
  // The printed servers, one at a time, with the address and the port of `server`.
  const only = (protocol, server, credentials = {}) => ({
    forceTurn: true,
    turnServers: printed
      .filter((each) => each.protocol === protocol)
      .map((each) => ({
        ...{ ...each, ...credentials, fqdn: '', address },
        port: protocol === 'tls' ? server.tlsPort : server.port,
      })),
  });
  const [member, other] = [await openMember(t, { capture: CAPTURE }), await openMember(t)];
  const denied = other.does('join', uri, only('udp', elsewhere));
  for (const protocol of ['udp', 'tcp', 'tls']) {
    const joined = await member.does('join', uri, only(protocol, turn));
    assert.deepEqual(joined, { connected: true }, protocol);
    await member.does('leave');
  }
  for (const [what, credentials] of [
    ['expired', turnCredentials(SECRETS.turn, 'Ada', -1)],
    ['guessed', turnCredentials('a guess', 'Ada', 1)],
  ]) {
    const { code, reason } = await member.does('join', uri, only('udp', turn, credentials));
    assert.deepEqual([code, reason], [504, 'no TURN server can be used'], what);
  }
  assert.equal((await denied).code, 504);
});
