// Calls that may use relays only.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { remote } from '../../support/streams.mjs';
import { startTurnServer } from '../../support/turn_server.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

for (const protocol of ['udp', 'tcp']) {
  test(`pictures are received through a relay over ${protocol}`, async (t) => {
    const server = await startServer(t, { rooms: { meeting: {} } });
    const { used, ...relay } = await startTurnServer(t);
    const turnServers = [{ ...relay, protocol, fqdn: '', priority: 0, bandwidth: 0 }];
    const members = await Promise.all([openMember(t), openMember(t)]);
    const answers = await Promise.all(
      members.map((member, index) =>
        member.does(
          'join',
          server.uri('meeting', { camera: `card:${index + 1}`, microphone: 'tone:440' }),
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
  });
}
