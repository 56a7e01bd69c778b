// Meetings under the fake timers of tests: their clocks and waits are still the system's. In
// separate processes, since the fake timers also stop the process that runs these tests.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { runInChild } from '../../support/child.mjs';
import '../../support/face.mjs'; // names the addon for the processes

const MODULES = ['./support/face.mjs', './support/child.mjs'];

// The fake timers, which begin at 0: those of Node.js's test runner, and those of the package that
// other test runners use. They do not affect the package, which is loaded before them.
const FAKES = {
  'node:test': "require('node:test').mock.timers.enable({ now: 0 })",
  '@sinonjs/fake-timers': "require('@sinonjs/fake-timers').install({ now: 0 })",
};

// Runs `script`, to which `fake()` puts the fake timers in place.
function runFaked(fake, script) {
  const source = `async (face, child) => (${script})(face, child, () => ${fake})`;
  return runInChild(source, { modules: MODULES, environment: { NODE_NO_WARNINGS: '1' } });
}

for (const [name, fake] of Object.entries(FAKES)) {
  test(`meetings open, join, wait and show frames under the timers of ${name}`, () => {
    const child = runFaked(fake, async ({ openMeeting }, { say }, install) => {
      install();
      // The second one waits for the next second.
      const meetings = [await openMeeting(), await openMeeting()];
      const names = meetings.map(({ wrapper }) => wrapper.getSharedDataInfo().shm_name);
      say(new Set(names).size);
      const [meeting, other] = meetings;
      other.close();
      await meeting.waitFor('vspUpdateVOQI', { timeout: 1 }).catch((error) => say(error.message));
      await meeting.join({ uri: 'tessel:demo?participants=1' });
      const times = [];
      for await (const frame of meeting.frames({ type: 'remote', streamIndex: 0 })) {
        if (times.push(frame.receivedAt) === 3) break;
      }
      await meeting.leave({ timeout: 60_000 });
      say(`${new Set(times).size} times at ${Date.now()}`);
      meeting.close();
    });
    assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
    assert.deepEqual(child.said, ['2', 'No vspUpdateVOQI within 1 ms', '3 times at 0']);
  });
}

test('advancing fake timers shortens no wait', () => {
  const child = runFaked(
    "require('@sinonjs/fake-timers').install()",
    async ({ joinMeeting }, { say }, install) => {
      const stream = { type: 'remote', streamIndex: 0 };
      const meeting = await joinMeeting(undefined, 'tessel:demo?participants=1', 1);
      const clock = install();
      const level = meeting.waitFor('vspUpdateVOQI', { timeout: 3_600_000 });
      const names = [];
      const segments = () =>
        require('node:fs')
          .readFileSync('/proc/self/maps', 'utf8')
          .match(/\/dev\/shm\/SHM\w{25}10/g);
      for (let count = 0; count < 2; count += 1) {
        await meeting.enterWidgetMode(stream);
        names.push(segments()[0]);
        meeting.exitWidgetMode(stream);
        clock.tick(3_600_000);
      }
      say(names[0] === names[1]);
      await Promise.race([level, meeting.waitFor('micLevel')]);
      say('no timeout');
      meeting.close();
    },
  );
  assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
  assert.deepEqual(child.said, ['false', 'no timeout']);
});
