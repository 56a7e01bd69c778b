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

// What it prints, and its exit code, when it opens no room.
async function outcome(t, options) {
  const child = spawn(process.execPath, [PROGRAM, ...options]);
  t.after(() => child.kill());
  const ended = once(child, 'close');
  const [words, errors] = await Promise.all([child.stdout.toArray(), child.stderr.toArray()]);
  const [code] = await ended;
  return { code, words: words.join(''), errors: errors.join('') };
}

const NOT_A_PORT = 'not a number from 0 to 65535';
for (const [options, reason] of [
  [['--room', 'our room'], '--room our room: only letters, digits, _ and - are allowed'],
  [['--pin', ''], '--pin: at least one character, and no control characters'],
  [['--pin', 'a\nb'], '--pin: at least one character, and no control characters'],
  [['--port', 'x'], `--port x: ${NOT_A_PORT}`],
  [['--page-port', '65536'], `--page-port 65536: ${NOT_A_PORT}`],
]) {
  test(`${JSON.stringify(options)} is refused`, async (t) => {
    assert.deepEqual(await outcome(t, options), {
      ...{ code: 2, words: '' },
      errors: `${reason}. Options: --room, --pin, --port and --page-port; --help describes them.\n`,
    });
  });
}

for (const option of ['--help', '-h']) {
  test(`${option} lists the options, and no room is opened`, async (t) => {
    const { code, words, errors } = await outcome(t, [option]);
    assert.deepEqual([code, errors], [0, '']);
    for (const name of ['room', 'pin', 'port', 'page-port']) {
      assert.match(words, new RegExp(` --${name} `));
    }
    assert.doesNotMatch(words, /janus\+ws/);
  });
}

test('the uri and the link join the same room, which SIGINT closes', async (t) => {
  const options = ['--room', 'our-room', '--pin', `"open" sesame's`];
  const { child, ended, uri, link } = await openRoom(t, options);
  const member = await openMember(t);
  const refused = await member.does('join', uri.replace(/&pin=[^&]*/, ''));
  assert.equal(refused.reason, 'the room asks for another pin');
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
  await member.does('seen', 'noRtpMedia', { mediaType: 'audio', up: false });
  await assert.rejects(fetch(link));
});
