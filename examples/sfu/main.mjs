// A room on this machine: the stock SFU, and a page with which a browser joins the room.

import { createServer } from 'node:http';
import { once } from 'node:events';
import { readFileSync } from 'node:fs';

import { readOptions } from '../support/options.mjs';
import { JanusServer, freePort, ownAddress } from './janus_server.mjs';

const USUAL_PORT = 8188;
const USAGE = 'Options: --room NAME (default: meeting), --port PORT of the SFU, --page-port PORT.';

const FILES = new Map(
  [
    ['/', 'guest.html', 'text/html'],
    ['/guest.mjs', 'guest.mjs', 'text/javascript'],
    ['/room_guest.mjs', 'room_guest.mjs', 'text/javascript'],
    ['/stand_in_camera.mjs', 'stand_in_camera.mjs', 'text/javascript'],
  ].map(([route, name, type]) => [
    route,
    { type, content: readFileSync(new URL(`./guest/${name}`, import.meta.url)) },
  ]),
);

// Serves the guest's page on the loopback interface, where a page may use camera and microphone.
export async function servePage(port = 0) {
  const server = createServer((request, answer) => {
    const { pathname } = new URL(request.url, 'http://localhost');
    const file = FILES.get(pathname);
    if (!file) return answer.writeHead(404).end();
    return answer
      .writeHead(200, { 'Content-Type': `${file.type}; charset=utf-8` })
      .end(file.content);
  });
  server.listen(port, '127.0.0.1');
  await once(server, 'listening');
  return server;
}

// The link with which a browser joins a room of `janus`.
export function guestLink(pageServer, janus, room) {
  const query = new URLSearchParams({ server: `ws://${janus.authority}/`, room });
  return `http://127.0.0.1:${pageServer.address().port}/?${query}`;
}

async function usualPort(address) {
  const { createServer: listen } = await import('node:net');
  const server = listen();
  try {
    server.listen(USUAL_PORT, address);
    await once(server, 'listening');
    server.close();
    return USUAL_PORT;
  } catch {
    return freePort(address);
  }
}

async function main() {
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
}

if (import.meta.filename === process.argv[1]) await main();
