// The page with which a browser joins a room.

import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { createServer } from 'node:http';

const FILES = new Map(
  [
    ['/', 'guest.html', 'text/html'],
    ['/guest.mjs', 'guest.mjs', 'text/javascript'],
    ['/room_guest.mjs', 'room_guest.mjs', 'text/javascript'],
    ['/synthetic_sources.mjs', 'synthetic_sources.mjs', 'text/javascript'],
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

// The link with which a browser joins a room of `janus`, which may ask for a pin and a token.
export function guestLink(pageServer, janus, room, access = {}) {
  const query = new URLSearchParams({ server: `ws://${janus.authority}/`, room, ...access });
  return `http://127.0.0.1:${pageServer.address().port}/?${query}`;
}
