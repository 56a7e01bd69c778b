// The guide's picture server. For the release build only: the thread sanitizer reports the threads
// of sharp's library.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { randomBytes } from 'node:crypto';
import { once } from 'node:events';
import { writeFileSync } from 'node:fs';
import { request } from 'node:http';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import sharp from 'sharp';
import { WebSocket } from 'ws';

import { readCard } from '../support/card_code.mjs';
import '../support/face.mjs'; // names the addon for the process
import { directory, variant } from '../support/guide.mjs';

// A client that sends a frame with reserved bits, and is closed for it.
async function sendGarbage(address) {
  const opening = request(address.replace('ws:', 'http:'), {
    headers: {
      Connection: 'Upgrade',
      Upgrade: 'websocket',
      'Sec-WebSocket-Version': 13,
      'Sec-WebSocket-Key': randomBytes(16).toString('base64'),
    },
  }).end();
  const [, socket] = await once(opening, 'upgrade');
  socket.resume().write(Buffer.of(0xff, 0xff));
  await once(socket, 'close');
}

// The server of `source`: { said, end }. said() settles with its next line that starts so, end()
// terminates it and settles when it has ended well.
function start(t, source) {
  const file = path.join(directory, 'serving.mjs');
  writeFileSync(file, source);
  const child = spawn(process.execPath, [file], { stdio: ['ignore', 'pipe', 'pipe'] });
  t.after(() => child.kill('SIGKILL'));
  const exit = once(child, 'exit');
  let complaints = '';
  child.stderr.setEncoding('utf8').on('data', (text) => (complaints += text));
  const lines = createInterface({ input: child.stdout });
  const said = (beginning) =>
    new Promise((resolve) => {
      lines.on('line', (line) => line.startsWith(beginning) && resolve(line));
    });
  const end = async () => {
    child.kill('SIGTERM');
    assert.deepEqual(await exit, [0, null]);
    assert.equal(complaints, '');
  };
  return { said, end };
}

test('server.mjs serves those who keep up and lets go of those who do not', async (t) => {
  const source = variant('server.mjs', {
    // Pictures that fill what the system keeps for a connection sooner.
    'participants=1': 'participants=1&size=1280x720',
    '.jpeg()': '.png({ compressionLevel: 0 })',
    'PATIENCE = 5000': 'PATIENCE = 500',
  });
  const { said, end } = start(t, source);
  const letGo = said('a client was too slow');
  const address = (await said('address: ')).replace('address: ', '');
  await sendGarbage(address);
  const slow = new WebSocket(address);
  await once(slow, 'open');
  slow.pause();
  const fast = new WebSocket(address);
  t.after(() => [slow, fast].forEach((client) => client.terminate()));
  const numbers = [];
  const newest = (data) =>
    sharp(data)
      .extractChannel('green')
      .raw()
      .toBuffer({ resolveWithObject: true })
      .then(({ data: yPlaneBuffer, info: { width, height } }) =>
        readCard({ width, height, yPlaneBuffer, yPlaneBufferStride: width }),
      );
  fast.on('message', (data, isBinary) => isBinary && numbers.push(newest(data)));
  await letGo;
  const before = numbers.length;
  while (numbers.length < before + 3) await once(fast, 'message');
  const cards = await Promise.all(numbers);
  cards.forEach((card, index) => {
    assert.equal(card.streamIndex, 0);
    if (index > 0) assert.ok(card.number > cards[index - 1].number);
  });
  await end();
});

const MUTED = { 'participants=1': 'participants=1&videomute=0@0-3600' };

test('server.mjs tells who comes during a mute that there is nothing to show', async (t) => {
  const { said, end } = start(t, variant('server.mjs', MUTED));
  const address = (await said('address: ')).replace('address: ', '');
  for (let count = 0; count < 2; count += 1) {
    const client = new WebSocket(address);
    t.after(() => client.terminate());
    const [data, isBinary] = await once(client, 'message');
    assert.deepEqual([`${data}`, isBinary], ['nothing to show', false]);
  }
  await end();
});

test('server.mjs tells a client that was too slow for it when the mute began, and lets go of it', async (t) => {
  // More bytes than a client may have waiting: for the first one until it is let go, then for none.
  const source = variant('server.mjs', {
    ...MUTED,
    'const BACKLOG = 200_000': 'let BACKLOG = -1',
    'PATIENCE = 5000': 'PATIENCE = 500',
    "console.log('a client was too slow');": `
      console.log('a client was too slow');
      server.once('connection', () => setImmediate(() => (BACKLOG = 0)));`,
  });
  const { said, end } = start(t, source);
  const letGo = said('a client was too slow');
  const address = (await said('address: ')).replace('address: ', '');
  const slow = new WebSocket(address);
  t.after(() => slow.terminate());
  await letGo;
  const catchingUp = new WebSocket(address);
  t.after(() => catchingUp.terminate());
  const [data] = await once(catchingUp, 'message');
  assert.equal(`${data}`, 'nothing to show');
  await end();
});
