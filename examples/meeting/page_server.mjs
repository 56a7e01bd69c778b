// Serves a page and its WebSocket only to the browser of the user who started the program: on the
// loopback interface, under an address with a random token, and for requests of its own origin. A
// page of another site can neither guess the token, nor read responses, nor use its own host name
// for this machine (Host is checked).

import { randomBytes, timingSafeEqual } from 'node:crypto';
import { once } from 'node:events';
import { readFile } from 'node:fs/promises';
import { createServer } from 'node:http';
import path from 'node:path';
import { WebSocketServer } from 'ws';

const HOST = '127.0.0.1';
// Messages of a page are short.
const LONGEST_MESSAGE = 64 * 1024;

const TYPES = {
  '.html': 'text/html; charset=utf-8',
  '.css': 'text/css; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.mjs': 'text/javascript; charset=utf-8',
};

const HEADERS = {
  'Cache-Control': 'no-store',
  'Content-Security-Policy':
    "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; img-src 'self' data:; " +
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
  'Cross-Origin-Resource-Policy': 'same-origin',
  'Referrer-Policy': 'no-referrer',
  'X-Content-Type-Options': 'nosniff',
};

const sameText = (one, other) => {
  const [a, b] = [Buffer.from(one), Buffer.from(other)];
  return a.length === b.length && timingSafeEqual(a, b);
};

// The page itself may also be opened by a page of this machine that knows the address.
function isFromAcceptableSite(headers, name) {
  const site = headers['sec-fetch-site'] ?? 'none';
  const isOpening = name === '' && headers['sec-fetch-dest'] === 'document';
  return site === 'same-origin' || site === 'none' || (site === 'same-site' && isOpening);
}

export class PageServer {
  #http = createServer((request, response) => this.#answer(request, response));
  #sockets = new WebSocketServer({
    noServer: true,
    maxPayload: LONGEST_MESSAGE,
    perMessageDeflate: false,
  });
  #files;
  #onConnection;

  // `files` maps the paths of requests to files on disk; '' is the page itself. `onConnection` is
  // called with each WebSocket (of the package ws) that the page opens. A server that replaces
  // another one is given its `port` and `token`.
  constructor({ files, onConnection, port = 0, token = randomBytes(24).toString('base64url') }) {
    this.#files = new Map(Object.entries(files));
    this.#onConnection = onConnection;
    this.port = port;
    this.token = token;
    this.#http.on('upgrade', (request, socket, head) => this.#upgrade(request, socket, head));
  }

  async listen() {
    this.#http.listen(this.port, HOST);
    await once(this.#http, 'listening');
    this.port = this.#http.address().port;
  }

  // As browsers write it, without the default port.
  get origin() {
    return new URL(`http://${HOST}:${this.port}`).origin;
  }

  // The address for the user.
  get address() {
    return `${this.origin}/${this.token}/`;
  }

  async close() {
    for (const socket of this.#sockets.clients) socket.terminate();
    this.#http.close();
    this.#http.closeAllConnections();
    await once(this.#http, 'close');
  }

  // The name of the file that a valid request asks for; undefined for an invalid request.
  #nameAskedFor({ headers, url }) {
    if (headers.host !== new URL(this.origin).host) return undefined;
    if (headers.origin !== undefined && headers.origin !== this.origin) return undefined;
    const [, token, name] = /^\/([^/]*)\/([^?]*)$/.exec(url) ?? [];
    if (!isFromAcceptableSite(headers, name)) return undefined;
    return token !== undefined && sameText(token, this.token) ? name : undefined;
  }

  async #answer(request, response) {
    const name = this.#nameAskedFor(request);
    if (name === undefined) return refuse(response, 403);
    if (request.method !== 'GET') return refuse(response, 405);
    const file = this.#files.get(name);
    if (file === undefined) return refuse(response, 404);
    const content = await readFile(file).catch(() => undefined);
    if (content === undefined) return refuse(response, 404);
    response.writeHead(200, { ...HEADERS, 'Content-Type': TYPES[path.extname(file)] });
    response.end(content);
  }

  #upgrade(request, socket, head) {
    socket.on('error', () => socket.destroy());
    // Browsers send the origin of every WebSocket.
    if (this.#nameAskedFor(request) !== 'socket' || request.headers.origin === undefined) {
      socket.end('HTTP/1.1 403 Forbidden\r\nConnection: close\r\nContent-Length: 0\r\n\r\n');
      return;
    }
    this.#sockets.handleUpgrade(request, socket, head, this.#onConnection);
  }
}

function refuse(response, status) {
  response.writeHead(status, HEADERS);
  response.end();
}
