// The package from its tarball in a real meeting, with the binaries that it brings.

import assert from 'node:assert/strict';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { readCard } from '../../support/card_code.mjs';
import { environmentOfNode, pack, run } from '../../support/packed.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const MEETING = `
import { writeFileSync } from 'node:fs';
import { Meeting, copyI420 } from 'tessel-wrapper/webrtc';

const [uri] = process.argv.slice(2);
const meeting = await Meeting.open({ logPath: '/dev/null' });
await meeting.join({ uri });
for await (const frame of meeting.frames({ type: 'remote', streamIndex: 0 })) {
  const { width, height } = frame;
  const bytes = Buffer.from(copyI420(frame)).toString('base64');
  writeFileSync('frame.json', JSON.stringify({ width, height, bytes }));
  break;
}
await meeting.leave();
meeting.close();
`;

test('an installed package sees the others of a real meeting where there is no compiler', async (t) => {
  const directory = temporaryDirectory(t);
  const environment = environmentOfNode(path.join(directory, 'commands'));
  const home = path.join(directory, 'node_modules/tessel-wrapper');
  mkdirSync(home, { recursive: true });
  run(directory, {}, 'tar', '-xf', pack(directory), '-C', home, '--strip-components=1');
  writeFileSync(path.join(directory, 'meeting.mjs'), MEETING);

  const server = await startServer(t, { rooms: { meeting: {} } });
  const other = await openMember(t, { capture: { width: 320, height: 180, maxFPS: 15 } });
  const joined = await other.does('join', server.uri('meeting', { camera: 'card:7' }));
  assert.deepEqual(joined, { connected: true });

  const silent = { ...environment, PULSE_SERVER: 'unix:/nowhere' };
  run(directory, silent, process.execPath, 'meeting.mjs', server.uri('meeting'));
  const { width, height, bytes } = JSON.parse(
    readFileSync(path.join(directory, 'frame.json'), 'utf8'),
  );
  const yPlaneBuffer = Buffer.from(bytes, 'base64');
  const card = readCard({ width, height, yPlaneBuffer, yPlaneBufferStride: width });
  assert.deepEqual([card.type, card.detail], ['local', 7]);
  const found = run(directory, silent, process.execPath, `${home}/bin/tessel-wrapper.js`, 'doctor');
  const engine = path.join(home, 'prebuilt/linux-x64/webrtc/libtesselclient.so');
  assert.ok(found.includes(`ok       real meetings: engine ${engine}\n`), found);
  assert.match(found, /^ok {7}real meetings: gstreamer1\.0-nice has nicesrc$/m);
});
