// The package's face over the build under test.

import { createRequire } from 'node:module';
import path from 'node:path';

import { repository } from './build.mjs';

// One of the face's own modules.
export const requireFace = createRequire(path.join(repository, 'js/index.js'));

export const face = requireFace('./index.js');

// Another copy of it, as after a test runner has reset its modules.
export function freshFace() {
  const { cache } = requireFace;
  for (const file of Object.keys(cache)) {
    if (file.startsWith(path.join(repository, 'js/'))) delete cache[file];
  }
  return requireFace('./index.js');
}

const clocks = requireFace('./clocks.js');

// Puts the face on the mocked timers of `test`, which it does not look at by itself. `options` are
// those of test.mock.timers.enable().
export function mockClocks(test, options) {
  test.mock.timers.enable(options);
  test.mock.method(clocks, 'setTimeout', (...args) => setTimeout(...args));
  test.mock.method(clocks, 'clearTimeout', (timer) => clearTimeout(timer));
  test.mock.method(clocks, 'wallTime', () => Date.now());
}

// A meeting, which writes no log, closed when `test` ends; without one, the caller closes it.
export async function openMeeting(test) {
  const meeting = await face.Meeting.open({ logPath: '/dev/null' });
  test?.after(() => meeting.close());
  return meeting;
}

// The same on the embedded engine, in the call that `uri` describes, when `count` streams are there.
export async function joinMeeting(test, uri, count = 0) {
  const meeting = await openMeeting(test);
  const added = meeting.events(['streamAdded']);
  await meeting.join({ uri });
  while (meeting.streams.length < count) await added.next();
  await added.return();
  return meeting;
}
