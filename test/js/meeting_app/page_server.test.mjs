// The requests that the meeting application's server accepts and refuses.

import assert from 'node:assert/strict';
import { once } from 'node:events';
import { writeFileSync } from 'node:fs';
import { request } from 'node:http';
import { connect } from 'node:net';
import path from 'node:path';
import { test } from 'node:test';
import { WebSocket } from 'ws';

import { PageServer } from '../../../examples/meeting/page_server.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';

async function serve(t, options = {}) {
  const directory = temporaryDirectory(t);
  const page = path.join(directory, 'page.html');
  writeFileSync(page, 'the page');
  const sockets = [];
  const server = new PageServer({
    files: { '': page, 'gone.css': path.join(directory, 'gone.css') },
    onConnection: (socket) => sockets.push(socket),
    ...options,
  });
  await server.listen();
  t.after(() => server.close());
  return { server, sockets };
}

// The status and the body of the answer to a request for exactly this path.
async function ask({ port }, target, { headers = {}, method = 'GET' } = {}) {
  const asking = request({ host: '127.0.0.1', port, path: target, method, headers });
  asking.end();
  const [response] = await once(asking, 'response');
  const chunks = await response.toArray();
  return { status: response.statusCode, headers: response.headers, body: chunks.join('') };
}

test('the page is served under the token, with headers that forbid access by other origins', async (t) => {
  const { server } = await serve(t);
  const { status, body, headers } = await ask(server, `/${server.token}/`);
  assert.deepEqual([status, body], [200, 'the page']);
  assert.equal(server.address, `http://127.0.0.1:${server.port}/${server.token}/`);
  assert.match(headers['content-security-policy'], /default-src 'none'/);
  assert.match(headers['content-security-policy'], /frame-ancestors 'none'/);
  assert.equal(headers['cross-origin-resource-policy'], 'same-origin');
  assert.equal(headers['referrer-policy'], 'no-referrer');
  assert.equal(headers['access-control-allow-origin'], undefined);
});

test('every server has its own token of 192 random bits', async (t) => {
  const tokens = [(await serve(t)).server.token, (await serve(t)).server.token];
  assert.notEqual(tokens[0], tokens[1]);
  for (const token of tokens) assert.equal(Buffer.from(token, 'base64url').length, 24);
});

for (const [what, status, of] of [
  ['no token', 403, () => ['/']],
  ['a wrong token', 403, ({ token }) => [`/${token.slice(1)}x/`]],
  ['a longer token', 403, ({ token }) => [`/${token}x/`]],
  ['a token without a path', 403, ({ token }) => [`/${token}`]],
  [
    'another name of this machine',
    403,
    ({ token, port }) => [`/${token}/`, { headers: { host: `localhost:${port}` } }],
  ],
  [
    'a name that an attacker points here',
    403,
    ({ token, port }) => [`/${token}/`, { headers: { host: `attacker.example:${port}` } }],
  ],
  [
    'another origin',
    403,
    ({ token }) => [`/${token}/`, { headers: { origin: 'https://attacker.example' } }],
  ],
  [
    'another port of this machine as origin',
    403,
    ({ token }) => [`/${token}/`, { headers: { origin: 'http://127.0.0.1:1' } }],
  ],
  [
    'another site',
    403,
    ({ token }) => [
      `/${token}/`,
      { headers: { 'sec-fetch-site': 'cross-site', 'sec-fetch-dest': 'document' } },
    ],
  ],
  [
    'a script of another port',
    403,
    ({ token }) => [
      `/${token}/`,
      { headers: { 'sec-fetch-site': 'same-site', 'sec-fetch-dest': 'empty' } },
    ],
  ],
  [
    'a page of another port that opens it',
    200,
    ({ token }) => [
      `/${token}/`,
      { headers: { 'sec-fetch-site': 'same-site', 'sec-fetch-dest': 'document' } },
    ],
  ],
  ['another method', 405, ({ token }) => [`/${token}/`, { method: 'POST' }]],
  ['a file that is not listed', 404, ({ token }) => [`/${token}/page.html`]],
  ['a way out of the folder', 404, ({ token }) => [`/${token}/../../../../etc/passwd`]],
  ['a listed file that is not there', 404, ({ token }) => [`/${token}/gone.css`]],
]) {
  test(`a request with ${what} is answered with ${status}`, async (t) => {
    const { server } = await serve(t);
    const answer = await ask(server, ...of(server));
    assert.equal(answer.status, status);
    assert.equal(answer.body, status === 200 ? 'the page' : '');
  });
}

test('other addresses of this machine do not answer', async (t) => {
  const { server } = await serve(t);
  for (const host of ['127.0.0.2', '::1']) {
    const socket = connect({ host, port: server.port });
    const outcome = await once(socket, 'connect').then(
      () => 'connected',
      ({ code }) => code,
    );
    socket.destroy();
    assert.match(outcome, /^(ECONNREFUSED|EADDRNOTAVAIL)$/, host);
  }
});

test('the address omits the default port, as browsers do', async (t) => {
  const { server } = await serve(t);
  const { port } = server;
  server.port = 80; // which is not everybody's to listen on
  assert.equal(server.address, `http://127.0.0.1/${server.token}/`);
  const headers = { host: '127.0.0.1', origin: 'http://127.0.0.1' };
  const { status } = await ask({ port }, `/${server.token}/`, { headers });
  assert.equal(status, 200);
});

const socketOf = (server, { token = server.token, ...options } = {}) =>
  new WebSocket(`ws://127.0.0.1:${server.port}/${token}/socket`, {
    origin: server.origin,
    ...options,
  });

test('a WebSocket of the page is accepted', async (t) => {
  const { server, sockets } = await serve(t);
  const client = socketOf(server);
  await once(client, 'open');
  assert.equal(sockets.length, 1);
});

for (const [what, options] of [
  ['a wrong token', { token: 'x'.repeat(32) }],
  ['another origin', { origin: 'https://attacker.example' }],
  ['another port of this machine as origin', { origin: 'http://127.0.0.1:1' }],
  ['no origin', { origin: undefined }],
  ['another host', { headers: { host: 'attacker.example' } }],
]) {
  test(`a WebSocket with ${what} is refused`, async (t) => {
    const { server, sockets } = await serve(t);
    const outcome = await once(socketOf(server, options), 'open').then(
      () => 'open',
      ({ message }) => message,
    );
    assert.equal(outcome, 'Unexpected server response: 403');
    assert.equal(sockets.length, 0);
  });
}

test('an invalid message closes its own socket only', async (t) => {
  const { server, sockets } = await serve(t);
  const client = socketOf(server);
  await once(client, 'open');
  sockets[0].on('error', () => {});
  client.send('x'.repeat(64 * 1024 + 1));
  const [code] = await once(client, 'close');
  assert.equal(code, 1009);
  assert.equal((await ask(server, `/${server.token}/`)).status, 200);
});

test('a server that replaces another one keeps its address', async (t) => {
  const server = new PageServer({ files: {}, onConnection() {} });
  await server.listen();
  const { port, token, address } = server;
  await server.close();
  const { server: successor } = await serve(t, { port, token });
  assert.equal(successor.address, address);
  assert.equal((await ask(successor, `/${token}/`)).status, 200);
});
