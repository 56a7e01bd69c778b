// The load of SFUs, as text for Prometheus (for the textfile collector of its node exporter), from
// their admin API:
//
//   JANUS_ADMIN_SECRET=... JANUS_ADMIN_KEY=... node metrics.mjs SERVER...
//
// A SERVER is the uri of an admin API, as http://10.0.0.11:7088/admin. A server that does not answer
// has tessel_sfu_up 0 and nothing else.

import { ask, askRooms, meetingsOf } from './admin_api.mjs';

async function measure(server) {
  const { sessions } = await ask(server, 'list_sessions');
  const { list } = await askRooms(server, {
    request: 'list',
    admin_key: process.env.JANUS_ADMIN_KEY,
  });
  const rooms = meetingsOf(list);
  const inUse = rooms.filter(({ num_participants: count }) => count > 0);
  return {
    up: 1,
    sessions: sessions.length,
    rooms: rooms.length,
    rooms_in_use: inUse.length,
    participants: inUse.reduce((sum, { num_participants: count }) => sum + count, 0),
    // Of one participant each, and of what each receives of each other one. A presentation adds as
    // many as the room has participants.
    connections: inUse.reduce((sum, { num_participants: count }) => sum + count * count, 0),
  };
}

const servers = process.argv.slice(2);
if (servers.length === 0) {
  console.error('usage: metrics.mjs SERVER...');
  process.exitCode = 2;
}
const results = await Promise.allSettled(servers.map(measure));
for (const [index, { value }] of results.entries()) {
  for (const [name, figure] of Object.entries(value ?? { up: 0 })) {
    console.log(`tessel_sfu_${name}{server="${servers[index]}"} ${figure}`);
  }
}
