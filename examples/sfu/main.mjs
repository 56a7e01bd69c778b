// A room on this machine: the stock SFU, and a page with which a browser joins the room.

import { once } from 'node:events';
import { createServer } from 'node:net';

import { checkPort, isHelpWanted, readOptions, refuseUsage } from '../support/options.mjs';
import { guestLink, servePage } from './guest_page.mjs';
import { JanusServer, freePort, ownAddress } from './janus_server.mjs';

const USUAL_PORT = 8188;
const USAGE = 'Options: --room, --pin, --port and --page-port; --help describes them.';

const HELP = `A room for real meetings on this machine: a Janus server of its own, and a page for browsers.

  npm run sfu                           prints the room's uri for npm start, and a link for a browser
  npm run sfu -- --room NAME            the room's name (default: meeting)
  npm run sfu -- --pin PIN              the room asks for it; the uri and the link have it
  npm run sfu -- --port PORT            of the server (default: ${USUAL_PORT}, or a free one)
  npm run sfu -- --page-port PORT       of the page (default: a free one)
`;

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

if (isHelpWanted()) {
  process.stdout.write(HELP);
  process.exit();
}
const {
  room,
  pin,
  port,
  'page-port': pagePort,
} = readOptions(
  {
    room: { type: 'string', default: 'meeting' },
    pin: { type: 'string' },
    port: { type: 'string' },
    'page-port': { type: 'string', default: '0' },
  },
  USAGE,
);
// The server's configuration allows no other characters.
if (!/^[\w-]+$/.test(room)) {
  refuseUsage(`--room ${room}: only letters, digits, _ and - are allowed`, USAGE);
}
if (pin !== undefined && !/^[^\p{C}]+$/u.test(pin)) {
  refuseUsage('--pin: at least one character, and no control characters', USAGE);
}
if (port !== undefined) checkPort('--port', port, USAGE);
checkPort('--page-port', pagePort, USAGE);
const address = ownAddress();
const janus = await JanusServer.start({
  address,
  port: port === undefined ? await usualPort(address) : Number(port),
  rooms: { [room]: pin === undefined ? {} : { pin } },
});
const pageServer = await servePage(Number(pagePort));
const access = pin === undefined ? {} : { pin };
console.log(`A room of the SFU is open. Join it with

  npm start -- --uri '${janus.uri(room, access)}'

in two terminals, or more. Without a camera a test card is sent; &microphone=tone:440 in the uri sends a
tone. A browser on this machine joins it with

  ${guestLink(pageServer, janus, room, access)}

Ctrl+C closes the room.`);
for (const signal of ['SIGINT', 'SIGTERM']) {
  process.once(signal, async () => {
    pageServer.close();
    pageServer.closeAllConnections();
    await janus.stop();
  });
}
