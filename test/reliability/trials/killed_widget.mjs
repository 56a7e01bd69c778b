// Widgets that are killed: at a random moment, or while they hold a stream's lock.

import assert from 'node:assert/strict';
import { setTimeout } from 'node:timers/promises';

import { countOf } from '../../js/support/handmade_segments.mjs';
import { inParallel } from '../support/in_parallel.mjs';
import { remote, startMain, startWidget } from '../support/processes.mjs';

const STREAM = remote(3);
const OTHER = remote(4);
const MEETINGS = 4; // at once
const KILLS_OF_A_MEETING = 25;
const LONGEST_MS = 20;
const SMALL = { width: 64, height: 36, csrc: 5 };
const TIMED_OUT = /timedout/;

const total = { atRandom: 0, whileLocked: 0, mainLocksLost: 0, otherFrames: 0 };

// A meeting with a stream that goes on, read by a widget that nobody kills.
async function startMeeting(after) {
  const { main, key } = await startMain(after);
  await main.does('enter', OTHER);
  await main.does('startPushing', OTHER, { ...SMALL, fps: 100 });
  const bystander = await startWidget(after, key);
  await bystander.does('keepReading', OTHER);
  return {
    main,
    key,
    async end() {
      const already = (await bystander.does('seen')).frames;
      while ((await bystander.does('seen')).frames <= already + 10) await setTimeout(1);
      const { frames, broken, outOfOrder } = await bystander.does('stopReading');
      assert.deepEqual([broken, outOfOrder], [0, 0]);
      total.otherFrames += frames;
      await main.does('stopPushing', OTHER);
      // Nothing of the other stream was dropped.
      assert.deepEqual(
        main.lines.filter((line) => TIMED_OUT.test(line)),
        [],
      );
      await main.ends();
      await bystander.ends();
    },
  };
}

// The stream's next frame arrives at a new widget.
async function assertRecovered({ main, key }, after) {
  await main.does('enter', STREAM);
  const widget = await startWidget(after, key);
  assert.equal(await main.does('push', STREAM, { ...SMALL, number: 1 }), true);
  const { frames, broken } = await widget.does('read', STREAM, 1);
  assert.deepEqual([frames, broken], [1, 0]);
  // Ending by itself it would take the names of the main segment along.
  await widget.kill();
  await main.does('exit', STREAM);
}

export async function run(count, { after, random }) {
  const killSome = async (kills) => {
    let meeting = await startMeeting(after);
    for (let kill = 0; kill < kills; ++kill) {
      const { main, key } = meeting;
      await main.does('enter', STREAM);
      const widget = await startWidget(after, key);
      await main.does('push', STREAM, { ...SMALL, number: 1 });
      if (kill % 2 === 0) {
        await widget.does('keepReading', STREAM, 0);
        await setTimeout(random.number() * LONGEST_MS);
        ++total.atRandom;
      } else {
        await widget.does('lookAndHold', STREAM);
        ++total.whileLocked;
      }
      await widget.kill();
      // Whoever dies with the main segment's lock ends the use of that segment, not of the process.
      const isLost = countOf(key.sem_name) === 0;
      if (isLost) ++total.mainLocksLost;
      await main.does('exit', STREAM);
      if (isLost) {
        await main.ends();
        meeting = await startMeeting(after);
      }
      if (kill % 5 === 4) await assertRecovered(meeting, after);
    }
    await meeting.end();
  };
  const meetings = Math.ceil(count / KILLS_OF_A_MEETING);
  await inParallel(
    Array.from({ length: meetings }, () => () => killSome(Math.ceil(count / meetings))),
    MEETINGS,
  );
  return total;
}
