// node widget_frames.mjs WAY STREAMS: frames of 1280x720 from a main process to a widget process,
// of so many streams in turn. Prints {"framesPerSecond", "milliseconds"}, the latter of both
// processes' processor time for 1,000 frames.
//
// Every way works in lockstep: the main process sends a frame, the widget reads a byte of each
// plane and answers with one byte through a socket, and only then is the next one sent. A writer
// without pauses would keep the reader from the semaphore, which is not fair.
//
//   sharedMemory  stores the frame and announces it with one byte; the widget reads it in place
//   messages      child_process messages with advanced serialisation
//   socket        a Unix socket that the widget reads into one reused buffer

import { fork } from 'node:child_process';
import { once } from 'node:events';
import { writeSync } from 'node:fs';
import { Socket } from 'node:net';
import { fileURLToPath } from 'node:url';
import { loadAddon, loadProduct } from './addon.mjs';

const WARM_UP_FRAMES = 200;
const MILLISECONDS = 2000;

const LUMA_SIZE = 1280 * 720;
const CHROMA_SIZE = LUMA_SIZE / 4;
const FRAME_SIZE = LUMA_SIZE + 2 * CHROMA_SIZE;
const PLANES = [
  [0, LUMA_SIZE],
  [LUMA_SIZE, LUMA_SIZE + CHROMA_SIZE],
  [LUMA_SIZE + CHROMA_SIZE, FRAME_SIZE],
];
const planesIn = (frame) => PLANES.map(([from, to]) => frame.subarray(from, to));

// Descriptors of the widget, all Unix sockets.
const ACKNOWLEDGE = 3; // and announce
const PIXELS = 4;

const [way, streamsText, role] = process.argv.slice(2);
const streams = Number(streamsText);
const streamOf = (number) => ({ type: 'remote', streamIndex: number % streams });

// A pool of pictures that are used in turn, like a decoder's.
const pool = () => Array.from({ length: 8 }, (_, luma) => Buffer.alloc(FRAME_SIZE, luma));

let output = 1; // where the result goes

// How each way sends frame `number`, and how its widget receives: onFrame(y, u, v) for
// each, then acknowledge().
const ways = {
  sharedMemory: {
    send(widget) {
      const bench = loadAddon('shared_frame_bench');
      output = bench.silenceLines();
      bench.open();
      widget.send(bench.share(streams));
      const announcement = Buffer.of(1);
      return (number) => {
        bench.store(number % streams, number);
        widget.stdio[ACKNOWLEDGE].write(announcement);
      };
    },
    async receive(onFrame, acknowledge, announcements) {
      loadAddon('shared_frame_bench').silenceLines();
      const { TesselWrapperProxy } = loadProduct();
      const [names] = await once(process, 'message');
      const proxy = new TesselWrapperProxy(names);
      let number = 0;
      announcements.on('data', () => {
        const stream = streamOf(number++);
        const frame = proxy.getFrame(stream, -1);
        onFrame(frame.yPlaneBuffer, frame.uPlaneBuffer, frame.vPlaneBuffer);
        proxy.releaseFrame(stream);
        acknowledge();
      });
    },
  },
  messages: {
    send(widget) {
      const pictures = pool();
      return (number) => {
        const [y, u, v] = planesIn(pictures[number % pictures.length]);
        widget.send({ stream: streamOf(number), y, u, v });
      };
    },
    receive(onFrame, acknowledge) {
      process.on('message', ({ y, u, v }) => {
        if (y === undefined) return; // asked for something else
        onFrame(y, u, v);
        acknowledge();
      });
    },
  },
  socket: {
    send(widget) {
      const pictures = pool();
      return (number) => widget.stdio[PIXELS].write(pictures[number % pictures.length]);
    },
    receive(onFrame, acknowledge) {
      const frame = Buffer.alloc(FRAME_SIZE);
      let filled = 0;
      const onread = {
        buffer: () => frame.subarray(filled),
        callback(bytes) {
          filled = (filled + bytes) % FRAME_SIZE;
          if (filled > 0) return;
          onFrame(...planesIn(frame));
          acknowledge();
        },
      };
      new Socket({ fd: PIXELS, readable: true, onread }).resume();
    },
  },
};

async function runWidget() {
  const acknowledging = new Socket({ fd: ACKNOWLEDGE });
  const acknowledgement = Buffer.of(1);
  let expected = 0;
  const onFrame = (y, u, v) => {
    const luma = expected++ % 8;
    if (y[0] !== luma || u[0] !== luma || v[CHROMA_SIZE - 1] !== luma) {
      throw new Error('a wrong frame');
    }
  };
  const acknowledge = () => acknowledging.write(acknowledgement);
  await ways[way].receive(onFrame, acknowledge, acknowledging);
  process.on('message', ({ cpu }) => cpu && process.send(process.cpuUsage()));
  process.send('ready');
}

const microseconds = ({ user, system }) => user + system;

async function runMain() {
  const widget = fork(fileURLToPath(import.meta.url), [way, streamsText, 'widget'], {
    stdio: ['ignore', 'inherit', 'inherit', 'pipe', 'pipe', 'ipc'],
    serialization: 'advanced',
  });
  const ready = once(widget, 'message');
  const send = ways[way].send(widget);
  await ready;

  let number = 0;
  let isOver;
  let whenOver;
  widget.stdio[ACKNOWLEDGE].on('data', () => {
    if (isOver()) whenOver();
    else send(number++);
  });
  const run = (until) =>
    new Promise((resolve) => {
      isOver = until;
      whenOver = resolve;
      send(number++);
    });
  const cpu = async () => {
    const answer = once(widget, 'message');
    widget.send({ cpu: true });
    const [usage] = await answer;
    return microseconds(usage) + microseconds(process.cpuUsage());
  };

  await run(() => number >= WARM_UP_FRAMES);
  const cpuBefore = await cpu();
  const numberBefore = number;
  const started = performance.now();
  await run(() => performance.now() - started >= MILLISECONDS);
  const seconds = (performance.now() - started) / 1000;
  const frames = number - numberBefore;
  const busy = (await cpu()) - cpuBefore;
  widget.kill();
  return { framesPerSecond: frames / seconds, milliseconds: busy / frames };
}

if (role === 'widget') await runWidget();
else {
  const result = await runMain();
  writeSync(output, `${JSON.stringify(result)}\n`);
  process.exit();
}
