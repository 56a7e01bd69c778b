// node bench/meeting_app.mjs [--seconds N] [--warm-up N] [--participants N] [--without-browser]
//
// Runs the meeting application with its page in headless Chromium, all pictures of 360 lines, and
// prints the cost of its meeting process: the share of a processor core, and its memory with the
// best-fitting line. WebGL is drawn by the processor here, so the browser is slow and frames are
// skipped on a small machine; the number of drawn frames is printed, too. --without-browser
// replaces the page by a reader that reports "drawn" at once: the cost of full frame rates.
//
// --warm-up 180 --seconds 600 is the run that shows whether memory grows: the application keeps two
// minutes of statistics, and V8 adapts the size of its young generation in that time.

import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { setTimeout } from 'node:timers/promises';
import { parseArgs } from 'node:util';
import { WebSocket } from 'ws';

import { openBrowser } from '../test/support/meeting_app/browser.mjs';
import { openPage } from '../test/support/meeting_app/meeting_page.mjs';
import { startMeetingApp } from '../test/support/meeting_app/meeting_app.mjs';

const SAMPLE_MS = 1000;
const TICKS_PER_SECOND = 100; // of the kernel's accounting on Linux
const MEGABYTE_KB = 1024;
const LINES = 360;

function readOptions() {
  const { values } = parseArgs({
    options: {
      seconds: { type: 'string', default: '20' },
      // Until all participants are present and V8 has compiled the hot functions.
      'warm-up': { type: 'string', default: '5' },
      participants: { type: 'string', default: '11' }, // the twelfth tile is one's own
      'without-browser': { type: 'boolean', default: false },
    },
  });
  return {
    seconds: Number(values.seconds),
    warmUp: Number(values['warm-up']),
    participants: Number(values.participants),
    withoutBrowser: values['without-browser'],
  };
}

// Seconds of processor time that the process has taken.
function processorSeconds(pid) {
  const fields = readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  const [user, system] = fields.slice(11, 13).map(Number);
  return (user + system) / TICKS_PER_SECOND;
}

function megabytes(pid) {
  const [, kilobytes] = /^VmRSS:\s+(\d+)/m.exec(readFileSync(`/proc/${pid}/status`, 'utf8'));
  return Number(kilobytes) / MEGABYTE_KB;
}

// Megabytes per minute of the line that fits the samples { seconds, megabytes } best.
function slope(samples) {
  const mean = (of) => samples.reduce((sum, sample) => sum + of(sample), 0) / samples.length;
  const x = mean(({ seconds }) => seconds);
  const y = mean((sample) => sample.megabytes);
  const covariance = mean((sample) => (sample.seconds - x) * (sample.megabytes - y));
  return (60 * covariance) / mean(({ seconds }) => (seconds - x) ** 2);
}

// Opens the page in Chromium; returns a function that gives the number of frames drawn since.
async function openInBrowser(test, address, participants) {
  const browser = await openBrowser(test);
  const { page } = await openPage(test, browser, address, {
    viewport: { width: 1440, height: 860 },
  });
  await page.click('#layout-menu');
  await page.selectOption('select[name=quality]', `${LINES}`);
  await page.locator('.tile.live').nth(participants).waitFor();
  await page.evaluate(() => {
    globalThis.framesDrawn = 0;
    const { send } = WebSocket.prototype;
    WebSocket.prototype.send = function (text) {
      const { type, streams } = JSON.parse(text);
      if (type === 'drawn') globalThis.framesDrawn += streams.length;
      send.call(this, text);
    };
  });
  return () => page.evaluate(() => globalThis.framesDrawn);
}

// The same with a reader instead of the page.
async function openReader(test, address, participants) {
  const socket = new WebSocket(`${address.replace('http', 'ws')}socket`, {
    origin: new URL(address).origin,
  });
  test.after(() => socket.terminate());
  await once(socket, 'open');
  const names = ['local-0', ...Array.from({ length: participants }, (_, n) => `remote-${n}`)];
  let frames = 0;
  socket.on('message', (data, isFrame) => {
    if (!isFrame) return;
    frames += 1;
    const name = data[0] === 0 ? 'local-0' : `remote-${data[1]}`;
    socket.send(JSON.stringify({ type: 'drawn', streams: [name] }));
  });
  const tiles = names.map((stream) => ({ stream, height: LINES, frameRate: 30 }));
  socket.send(JSON.stringify({ type: 'layout', tiles }));
  return () => frames;
}

const cleanUps = [];
const lifetime = { after: (cleanUp) => cleanUps.unshift(cleanUp) };
const { seconds, warmUp, participants, withoutBrowser } = readOptions();
try {
  const { child, address } = await startMeetingApp(
    lifetime,
    `tessel:bench?participants=${participants}`,
  );
  const open = withoutBrowser ? openReader : openInBrowser;
  const framesDrawn = await open(lifetime, address, participants);
  await setTimeout(warmUp * 1000);

  const begin = performance.now();
  const processorBefore = processorSeconds(child.pid);
  const drawnBefore = await framesDrawn();
  const samples = [];
  const elapsed = () => (performance.now() - begin) / 1000;
  while (elapsed() < seconds) {
    samples.push({ seconds: elapsed(), megabytes: megabytes(child.pid) });
    await setTimeout(SAMPLE_MS);
  }
  const drawn = (await framesDrawn()) - drawnBefore;
  const processor = processorSeconds(child.pid) - processorBefore;
  const took = elapsed();
  console.table({
    [`tiles of ${LINES} lines`]: participants + 1,
    'seconds measured': Number(took.toFixed(1)),
    'share of a core, %': Number(((100 * processor) / took).toFixed(1)),
    'frames drawn per second and tile': Number((drawn / took / (participants + 1)).toFixed(1)),
    'memory at the beginning, MB': Number(samples[0].megabytes.toFixed(1)),
    'memory at the end, MB': Number(samples.at(-1).megabytes.toFixed(1)),
    'memory growth, MB per minute': Number(slope(samples).toFixed(2)),
  });
} finally {
  for (const cleanUp of cleanUps) await cleanUp();
}
