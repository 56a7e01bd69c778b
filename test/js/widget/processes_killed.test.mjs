// Widgets that are killed at random moments: while they start, while they look a stream up, while
// they hold a frame. TEST_SEED repeats a run as far as the machine allows.

import assert from 'node:assert/strict';
import { randomInt } from 'node:crypto';
import { describe, test } from 'node:test';
import { setTimeout } from 'node:timers/promises';

import { countOf } from '../../support/shared_memory/handmade_segments.mjs';
import {
  startMain,
  startWidget,
  startWidgetWithoutProxy,
} from '../../support/widget_mode_processes.mjs';
import { remote } from '../../support/streams.mjs';

const KILLS = 100;
const MEETINGS = 4; // at once
// A node process takes about this long until its first frame.
const LONGEST_START_MS = 150;
const LONGEST_READING_MS = 20;

const SEED = Number(process.env.TEST_SEED ?? randomInt(2 ** 32));
const STREAM = remote(3);

// Numbers from 0 to 1 that depend on the seed: a linear congruential generator.
function randomNumbers(seed) {
  let state = BigInt(seed);
  return () => {
    state = (state * 6364136223846793005n + 1442695040888963407n) % 2n ** 64n;
    return Number(state >> 32n) / 2 ** 32;
  };
}

// Starts a widget that reads, and kills it at some moment: every other one after it has seen
// frames.
async function startAndKill(t, key, { afterFrames, random }) {
  const widget = startWidgetWithoutProxy(t);
  const told = Promise.allSettled([widget.does('open', key), widget.does('keepReading', [STREAM])]);
  if (afterFrames) await widget.seen(({ reports }) => reports.length > 0);
  await setTimeout(random() * (afterFrames ? LONGEST_READING_MS : LONGEST_START_MS));
  await widget.kill();
  await told;
  assert.ok(widget.reports.every(({ whole }) => whole));
}

// A main process whose stream is pushed continuously.
async function startMeeting(t) {
  const { main, key } = await startMain(t);
  await main.does('startPushing', STREAM, { width: 64, height: 48, fps: 200 });
  const holdings = async () => {
    const { descriptors, mappedSegments, sharedMemoryKilobytes } = await main.does('holdings');
    return { descriptors, mappedSegments, sharedMemoryKilobytes };
  };
  const atStart = await holdings();
  return {
    key,
    enter: () => main.does('enter', STREAM),
    exit: () => main.does('exit', STREAM),
    async end() {
      assert.deepEqual(await holdings(), atStart);
      await main.does('stopPushing', STREAM);
      assert.equal((await main.does('holdings')).frames, 0);
      await main.ends();
    },
  };
}

describe('killing widgets', { concurrency: MEETINGS }, () => {
  console.log(`TEST_SEED=${SEED}`);
  for (let number = 0; number < MEETINGS; ++number) {
    test(`after ${KILLS / MEETINGS} kills of its widget the main process has lost nothing and continues`, async (t) => {
      const random = randomNumbers(SEED + number);
      let meeting = await startMeeting(t);
      for (let kill = 0; kill < KILLS / MEETINGS; ++kill) {
        await meeting.enter();
        await startAndKill(t, meeting.key, { afterFrames: kill % 2 === 1, random });
        // A widget that is killed with the main segment's lock makes that segment unusable.
        const isLost = countOf(meeting.key.sem_name) === 0;
        await meeting.exit();
        if (!isLost) continue;
        t.diagnostic(`kill ${kill} hit the main segment's lock`);
        await meeting.end();
        meeting = await startMeeting(t);
      }
      await meeting.enter();
      const widget = await startWidget(t, meeting.key);
      await widget.does('keepReading', [STREAM]);
      await widget.seen(({ reports }) => reports.length >= 10);
      await widget.ends();
      await meeting.exit();
      await meeting.end();
    });
  }
});
