// Calls that may use relays only.

import assert from 'node:assert/strict';
import { once } from 'node:events';
import { createServer } from 'node:net';
import { test } from 'node:test';
import { setTimeout as delay } from 'node:timers/promises';

import { ownAddress } from '../../../examples/sfu/janus_server.mjs';
import { makeCertificate } from '../../support/certificates.mjs';
import { remote } from '../../support/streams.mjs';
import { startTurnServer } from '../../support/turn_server.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

// What the relay had passed on has been shown by then.
const OUT_OF_THE_WAY_MS = 500;
// Thirty pictures are sent meanwhile.
const STOPPED_MS = 1000;

for (const protocol of ['udp', 'tcp', 'tls']) {
  test(`pictures are received through a relay over ${protocol}`, async (t) => {
    const server = await startServer(t, { rooms: { meeting: {} } });
    const certificate = protocol === 'tls' && makeCertificate(t, `IP:${ownAddress()}`);
    const parameters = certificate && { authority: certificate.authority };
    const { used, stop, goOn, ...relay } = await startTurnServer(t, { certificate });
    const turnServers = [{ ...relay, protocol, fqdn: '', priority: 0, bandwidth: 0 }];
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
    await delay(OUT_OF_THE_WAY_MS);
    const newest = () => Promise.all(members.map((member) => member.does('picture', remote(0))));
    const before = await newest();
    await delay(STOPPED_MS);
    assert.deepEqual(await newest(), before);
    goOn();
    await Promise.all(
      members.map((member, index) => member.does('picture', remote(0), before[index].frameId)),
    );
  });
}
