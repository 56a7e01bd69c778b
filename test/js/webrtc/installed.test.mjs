// The package from its tarball in a real meeting, with the binaries that it brings.

import assert from 'node:assert/strict';
import { mkdirSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { environmentOfNode, pack, run } from '../../support/packed.mjs';
import { copyQuickstart, picturesOf, startQuickstart } from '../../support/quickstart.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

test('the project to start from shows a real meeting where there is no compiler', async (t) => {
  const directory = temporaryDirectory(t);
  const environment = environmentOfNode(path.join(directory, 'commands'));
  const home = path.join(directory, 'node_modules/tessel-wrapper');
  mkdirSync(home, { recursive: true });
  run(directory, {}, 'tar', '-xf', pack(directory), '-C', home, '--strip-components=1');
  copyQuickstart(directory);

  const server = await startServer(t, { rooms: { meeting: {} } });
  const other = await openMember(t, { capture: { width: 320, height: 180, maxFPS: 15 } });
  const uri = (detail) => server.uri('meeting', { camera: `card:${detail}` });
  const joined = await other.does('join', uri(7), { endpointName: 'Grace' });
  assert.deepEqual(joined, { connected: true });

  const silent = { ...environment, PULSE_SERVER: 'unix:/nowhere' };
  const address = await startQuickstart(t, directory, silent, 'src/main.mjs', uri(8));
  const shown = await picturesOf(address, ['local-0', 'remote-0']);
  assert.deepEqual(
    shown.map(({ name, card }) => [name, card.type, card.detail]),
    [
      ['me', 'local', 8],
      ['Grace', 'local', 7],
    ],
  );
  const found = run(directory, silent, process.execPath, `${home}/bin/tessel-wrapper.js`, 'doctor');
  const engine = path.join(home, 'prebuilt/linux-x64/webrtc/libtesselclient.so');
  assert.ok(found.includes(`ok       real meetings: engine ${engine}\n`), found);
  assert.match(found, /^ok {7}real meetings: gstreamer1\.0-nice has nicesrc$/m);
});
