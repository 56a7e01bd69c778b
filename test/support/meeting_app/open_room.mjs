// The meeting application's room without its page.

import { once } from 'node:events';

import '../build.mjs'; // names the addon for the package
import { temporaryDirectory } from '../temporary_directory.mjs';

const { default: tessel } = await import('../../../js/index.js');
const { Room } = await import('../../../examples/meeting/room.mjs');

// A room for `uri` that is closed when the test ends, and its meeting.
export async function openRoom(test, uri) {
  const meeting = await tessel.Meeting.open({ logPath: temporaryDirectory(test) });
  const room = new Room({ uri, name: 'Tester' }, meeting);
  test.after(() => room.close());
  return { room, meeting };
}

// Settles when the room's state is as `isWanted` says.
export async function stateIs(room, isWanted) {
  while (!isWanted(room.state)) await once(room, 'change');
}

// Settles with what was logged under `name` once there are `count` entries.
export async function logIn(room, name, count = 1) {
  const entries = () => room.log.filter((entry) => entry.name === name);
  while (entries().length < count) await once(room, 'log');
  return entries().map(({ payload }) => payload);
}
