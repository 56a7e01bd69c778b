// Makes, removes and lists rooms, each with the one for its content, at all SFUs, through their admin API. Any server may then get the
// room, now or when another one fails.
//
//   JANUS_ADMIN_SECRET=... JANUS_ADMIN_KEY=... [ROOM_PIN=...] node rooms.mjs create ROOM SERVER...
//   JANUS_ADMIN_SECRET=... JANUS_ADMIN_KEY=... node rooms.mjs destroy ROOM SERVER...
//   JANUS_ADMIN_SECRET=... node rooms.mjs list SERVER...
//
// A SERVER is the uri of an admin API, as http://10.0.0.11:7088/admin. Secrets are variables of the
// environment, since everybody on a machine sees the arguments of its programs.

import { askRooms, contentRoomOf, meetingsOf } from './admin_api.mjs';

const ROOM_EXISTS = 427;
const NO_SUCH_ROOM = 426;

// What every room has.
const settings = () => ({
  // It is gone when the server restarts: create() makes it again.
  permanent: false,
  // It is not in the list that every client may request.
  is_private: true,
  // Who may remove, change and moderate it. Without a secret every client may.
  secret: process.env.JANUS_ADMIN_KEY,
  ...(process.env.ROOM_PIN && { pin: process.env.ROOM_PIN }),
  // Those who send. The engine receives 49 others.
  publishers: 50,
  // Nobody receives who is not in the room.
  require_pvtid: true,
  // Bits per second of one participant's video: the server asks the sender for no more, which stays
  // below it. 1.5 Mbit/s are enough for 1280x720.
  bitrate: 1_500_000,
  bitrate_cap: true,
  // The engine has VP8 and H.264; VP8 needs no hardware and no licence anywhere.
  videocodec: 'vp8,h264',
  audiocodec: 'opus',
  // A lost packet of sound is repaired from the next one.
  opus_fec: true,
  // A key frame at least every 10 s.
  fir_freq: 10,
});

// What the room for content has besides: one presenter, and bits enough for text.
const contentSettings = () => ({ ...settings(), publishers: 1, bitrate: 3_000_000 });

// A room that is there already is left as it is, so that this may be repeated at any time.
async function create(server, room) {
  const request = { request: 'create', admin_key: process.env.JANUS_ADMIN_KEY };
  await askRooms(server, { ...request, room, ...settings() }, ROOM_EXISTS);
  const content = { room: contentRoomOf(room), ...contentSettings() };
  await askRooms(server, { ...request, ...content }, ROOM_EXISTS);
}

async function destroy(server, meeting) {
  const request = { request: 'destroy', secret: process.env.JANUS_ADMIN_KEY };
  for (const room of [meeting, contentRoomOf(meeting)]) {
    await askRooms(server, { ...request, room }, NO_SUCH_ROOM);
  }
}

async function list(server) {
  const { list: rooms } = await askRooms(server, {
    request: 'list',
    admin_key: process.env.JANUS_ADMIN_KEY,
  });
  for (const { room, num_participants: count } of meetingsOf(rooms))
    console.log(server, room, count);
}

const [command, ...words] = process.argv.slice(2);
const doThis = { create, destroy, list }[command];
const [room, servers] = command === 'list' ? [undefined, words] : [words[0], words.slice(1)];
if (!doThis || servers.length === 0) {
  console.error('usage: rooms.mjs create|destroy ROOM SERVER... | list SERVER...');
  process.exitCode = 2;
} else {
  // Every server is asked, also when another one fails.
  const results = await Promise.allSettled(servers.map((server) => doThis(server, room)));
  for (const [index, { reason }] of results.entries()) {
    if (!reason) continue;
    console.error(`${servers[index]}: ${reason.cause?.message ?? reason.message}`);
    process.exitCode = 1;
  }
}
