// `npm run sfu`: the room, the printed uri and the printed link.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { PATIENCE_MS, openBrowser } from '../../support/meeting_app/browser.mjs';
import { remote } from '../../support/streams.mjs';
import { openMember } from '../../support/webrtc_room.mjs';

const PROGRAM = fileURLToPath(new URL('../../../examples/sfu/main.mjs', import.meta.url));

// Starts the program until the test ends. Resolves to its process and the printed uri and link.
async function openRoom(t, options) {
  const child = spawn(process.execPath, [PROGRAM, ...options], {
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  const ended = once(child, 'close');
  t.after(async () => {
    child.kill('SIGINT');
    await ended;
  });
  const printed = [];
  for await (const line of createInterface({ input: child.stdout })) {
    printed.push(line);
    if (line.startsWith('Ctrl+C')) break;
  }
  child.stdout.resume();
  const [, uri] = /--uri '(\S+)'/.exec(printed.join('\n'));
  const [link] = /http:\S+/.exec(printed.join('\n'));
  return { child, ended, uri, link };
}

test('an invalid room name is refused', async (t) => {
  const child = spawn(process.execPath, [PROGRAM, '--room', 'our room']);
  t.after(() => child.kill());
  const ended = once(child, 'close');
  const errors = (await child.stderr.toArray()).join('');
  assert.match(errors, /^--room our room: only letters, digits, _ and - are allowed\. Options: /);
  assert.deepEqual(await ended, [2, null]);
});

test('the uri and the link join the same room, which SIGINT closes', async (t) => {
  const { child, ended, uri, link } = await openRoom(t, ['--room', 'our-room']);
  const member = await openMember(t);
  const joined = await member.does('join', `${uri}&camera=card:7`, { endpointName: 'Ada' });
  assert.deepEqual(joined, { connected: true });
  const page = await (await openBrowser(t)).newPage();
  page.setDefaultTimeout(PATIENCE_MS);
  await page.goto(link);
  await page.getByLabel('Your name').fill('Zoë');
  await page.getByRole('button', { name: 'Join' }).click();
  await page.getByText('In the room.').waitFor();
  await page.locator('figcaption').getByText('Ada').waitFor();
  const { stream } = await member.does('knows', 'Zoë');
  assert.deepEqual(stream, remote(0));
  await member.does('picture', remote(0));

  child.kill('SIGINT');
  assert.deepEqual(await ended, [0, null]);
  const { code } = await member.does('seen', 'callDisconnect');
  assert.equal(code, 503);
  await assert.rejects(fetch(link));
});
