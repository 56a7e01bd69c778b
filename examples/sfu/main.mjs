// A room on this machine: the stock SFU, and a page with which a browser joins the room.

import { once } from 'node:events';
import { createServer } from 'node:net';

import { readOptions, refuseUsage } from '../support/options.mjs';
import { guestLink, servePage } from './guest_page.mjs';
import { JanusServer, freePort, ownAddress } from './janus_server.mjs';

const USUAL_PORT = 8188;
const USAGE = 'Options: --room NAME (default: meeting), --port PORT of the SFU, --page-port PORT.';

// The default port, or another one when it is in use.
async function usualPort(address) {
  const server = createServer().listen(USUAL_PORT, address);
  try {
    await once(server, 'listening');
  } catch {
    return freePort(address);
  }
  server.close();
  await once(server, 'close');
  return USUAL_PORT;
}

const {
  room,
  port,
  'page-port': pagePort,
} = readOptions(
  {
    room: { type: 'string', default: 'meeting' },
    port: { type: 'string' },
    'page-port': { type: 'string', default: '0' },
  },
  USAGE,
);
// What the server's configuration takes as part of a name.
if (!/^[\w-]+$/.test(room)) {
  refuseUsage(`--room ${room}: something else than letters, digits, _ and -`, USAGE);
}
const address = ownAddress();
const janus = await JanusServer.start({
  address,
  port: port === undefined ? await usualPort(address) : Number(port),
  rooms: { [room]: {} },
});
const pageServer = await servePage(Number(pagePort));
console.log(`A room of the SFU is open. Join it with

  npm start -- --uri '${janus.uri(room)}'

in two terminals, or more; add &camera=card and &microphone=tone:440 to the uri where there are no
devices. A browser on this machine joins it with

  ${guestLink(pageServer, janus, room)}

Ctrl+C closes the room.`);
for (const signal of ['SIGINT', 'SIGTERM']) {
  process.once(signal, async () => {
    pageServer.close();
    pageServer.closeAllConnections();
    await janus.stop();
  });
}
