// Programs of the guide in a real meeting: they need another import and another uri.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { writeFileSync } from 'node:fs';
import path from 'node:path';
import { before, test } from 'node:test';

import { build } from '../../support/build.mjs';
import { directory, examples, variant } from '../../support/guide.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const ROOM = 'meeting';
const OTHERS = 2;

let server;

before(async (t) => {
  server = await startServer(t, { rooms: { [ROOM]: {} } });
  for (let detail = 1; detail <= OTHERS; detail += 1) {
    const member = await openMember(t, { capture: { width: 640, height: 360, maxFPS: 7 } });
    const joined = await member.does('join', server.uri(ROOM, { camera: `card:${detail}` }));
    assert.deepEqual(joined, { connected: true });
  }
});

// The program's output, with these rooms instead of its simulated meetings.
function run(name, rooms, replacements) {
  const uris = Object.fromEntries(
    Object.entries(rooms).map(([uri, room]) => [`'${uri}'`, `'${server.uri(room)}'`]),
  );
  const source = variant(name, {
    ...uris,
    ...replacements,
    "from 'tessel-wrapper'": "from 'tessel-wrapper/webrtc'",
  });
  const program = path.join(directory, name);
  writeFileSync(program, source);
  const { status, signal, stdout, stderr } = spawnSync(process.execPath, [program], {
    env: {
      ...process.env,
      TESSEL_WRAPPER_ADDON: path.join(build, 'webrtc', 'tesselWrapper.node'),
      PULSE_SERVER: 'unix:/nowhere',
    },
    encoding: 'utf8',
    timeout: 120_000,
    killSignal: 'SIGKILL',
  });
  assert.deepEqual([status, signal, stderr], [0, null, '']);
  return stdout;
}

for (const [name, rooms, lines, replacements] of [
  [
    'join.mjs',
    { 'tessel:demo?refuse=403': 'elsewhere', 'tessel:demo?participants=2': ROOM },
    ['refused: there is no such room 404', 'stream remote [01]', 'left: the call was left'],
  ],
  ['frames.mjs', { 'tessel:demo?participants=1': ROOM }, ['shown: 5']],
  [
    'layout.mjs',
    { 'tessel:demo?participants=3&size=1280x720': ROOM },
    // Whose stream is added first is not determined.
    ['tile: [01] 640 x 360', 'tile: [01] 160 x 90'],
    { 'length < 3': `length < ${OTHERS}` },
  ],
  ['pop_out.mjs', { 'tessel:demo?participants=1': ROOM }, ['pictures: 5', 'widget ended: 0']],
]) {
  test(`${name} runs in a real meeting, too`, () => {
    writeFileSync(path.join(directory, 'widget.mjs'), examples.get('widget.mjs'));
    const said = run(name, rooms, replacements);
    for (const line of lines) assert.match(said, new RegExp(`^${line}$`, 'm'));
  });
}
