// The program of docs/webrtc-engine.md.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { text } from 'node:stream/consumers';
import { test } from 'node:test';

import { build, repository } from '../../support/build.mjs';
import { directory } from '../../support/guide.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const document = readFileSync(path.join(repository, 'docs/webrtc-engine.md'), 'utf8');
const [, name, source] = /^```js (\S+)\n(.*?)^```$/ms.exec(document);
const SHOWN = "console.log('picture:', frame.width, 'x', frame.height);";
const CARD_READER = path.join(repository, 'test/support/card_code.mjs');

// Runs it to its end, and answers with the lines of its own. It says what its picture shows, too.
async function run(t, uri) {
  assert.equal(source.split(SHOWN).length, 2);
  const program = path.join(directory, name);
  const shown = `${SHOWN} console.log('detail:', readCard(frame)?.detail);`;
  const reading = `import { readCard } from '${CARD_READER}';\n`;
  writeFileSync(program, reading + source.replace(SHOWN, () => shown));
  const child = spawn(process.execPath, [program, uri], {
    env: {
      ...process.env,
      TESSEL_WRAPPER_ADDON: path.join(build, 'webrtc', 'tesselWrapper.node'),
      PULSE_SERVER: 'unix:/nowhere',
    },
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  t.after(() => child.kill('SIGKILL'));
  const [stdout, stderr, [code]] = await Promise.all([
    text(child.stdout),
    text(child.stderr),
    once(child, 'close'),
  ]);
  assert.equal(code, 0, stderr);
  return stdout.split('\n').filter((line) => /^(there|picture|detail|refused): /.test(line));
}

test('the program says who is there and receives a picture', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const member = await openMember(t);
  const uri = (detail) => server.uri('meeting', { camera: `card:${detail}` });
  const joined = await member.does('join', uri(7), { endpointName: 'Grace' });
  assert.deepEqual(joined, { connected: true });
  const lines = await run(t, uri(8));
  assert.ok(lines.includes('there: Ada, Grace'), lines.join('\n'));
  assert.ok(lines.includes('picture: 640 x 360'), lines.join('\n'));
  assert.ok(lines.includes('detail: 7'), lines.join('\n'));
  const refused = await run(t, server.uri('elsewhere'));
  assert.equal(refused.at(-1), 'refused: there is no such room 404');
});
