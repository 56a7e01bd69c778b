// npm run bench [-- GROUP...] [-- --write]
//
// Runs the benchmarks, or one group of them. Every alternative runs in a process of its own, since
// what a process has run before changes how its JavaScript is compiled, and the alternatives take
// turns, round by round, so that a machine that slows down slows all of them. Prints the medians of
// the rounds, and the important ratios with their goals: each is the median of the rounds' own
// ratios. --write replaces the results in docs/performance.md.

import { execFileSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import os from 'node:os';
import { fileURLToPath } from 'node:url';
import { median } from './statistics.mjs';

const ROUNDS = 5;
const DOCUMENT = fileURLToPath(new URL('../docs/performance.md', import.meta.url));

const WIDGET_ROWS = [
  ['ours', 'shared memory, 1 stream', 'sharedMemory 1'],
  ['messages', 'child_process messages, advanced serialisation', 'messages 1'],
  ['socket', 'Unix socket, read into one buffer', 'socket 1'],
  ['ours10', 'shared memory, 10 streams', 'sharedMemory 10'],
  ['ours50', 'shared memory, 50 streams', 'sharedMemory 50'],
];

// rows: [name, label, arguments of the script, which of its numbers unless the group says it].
// ratios: [label, row over row, goal].
const groups = [
  {
    name: 'events',
    title: 'Events: native threads to a listener, three properties',
    unit: 'events per second',
    script: 'event_rate',
    number: 'eventsPerSecond',
    rows: [
      ['ours1', 'dispatcher, 1 thread', 'tessel 1'],
      ['native1', 'ThreadSafeFunction, 1 thread', 'threadSafeFunction 1'],
      ['callback1', '... with a callback, 1 thread', 'threadSafeFunctionWithCallback 1'],
      ['ours4', 'dispatcher, 4 threads', 'tessel 4'],
      ['native4', 'ThreadSafeFunction, 4 threads', 'threadSafeFunction 4'],
      ['callback4', '... with a callback, 4 threads', 'threadSafeFunctionWithCallback 4'],
    ],
    ratios: [
      ['dispatcher to ThreadSafeFunction, 1 thread', 'ours1', 'native1', { atLeast: 1.5 }],
      ['dispatcher to ThreadSafeFunction, 4 threads', 'ours4', 'native4', { atLeast: 1.5 }],
      ['dispatcher to the one with a callback, 1 thread', 'ours1', 'callback1', {}],
      ['dispatcher to the one with a callback, 4 threads', 'ours4', 'callback4', {}],
    ],
  },
  {
    name: 'drain',
    title: 'Events: delivering what is queued',
    unit: 'nanoseconds for each event',
    script: 'event_rate',
    number: 'nanoseconds',
    rows: [
      ['short', '1,000 events queued', 'tessel 1 1000'],
      ['long', '1,000,000 events queued', 'tessel 1 1000000'],
    ],
    ratios: [['1,000,000 queued to 1,000 queued', 'long', 'short', { atMost: 1.2 }]],
  },
  {
    name: 'latency',
    title: 'Events: waking an idle event loop',
    unit: 'microseconds',
    script: 'wake_up',
    rows: [
      ['ours50', 'dispatcher to listener, p50', 'tessel', 'p50'],
      ['ours99', 'dispatcher to listener, p99', 'tessel', 'p99'],
      ['bare50', 'bare libuv async handle to its callback, p50', 'bareHandle', 'p50'],
      ['bare99', 'bare libuv async handle to its callback, p99', 'bareHandle', 'p99'],
    ],
    ratios: [
      ['dispatcher to bare handle, p50', 'ours50', 'bare50', { atMost: 1.5 }],
      ['dispatcher to bare handle, p99', 'ours99', 'bare99', {}],
    ],
  },
  {
    name: 'frames',
    title: 'Frames: one of 1280x720 in each turn of the event loop',
    unit: 'microseconds for each frame',
    script: 'frame_cost',
    number: 'microseconds',
    rows: [
      ['turn', 'an empty turn', 'nothing 0'],
      ['ours', 'getFrame', 'getFrame 0'],
      ['copy', "copy into the caller's Buffer", 'copy 0'],
      ['never', 'external buffers that are never detached', 'neverDetached 0'],
      ['oursLive', 'getFrame, 100 MB of live heap', 'getFrame 100'],
      ['copyLive', 'copy, 100 MB of live heap', 'copy 100'],
      ['neverLive', 'never detached, 100 MB of live heap', 'neverDetached 100'],
    ],
    ratios: [
      ['getFrame to copy', 'ours', 'copy', { atMost: 0.2 }],
      ['never detached to getFrame', 'never', 'ours', { atLeast: 10 }],
      ['never detached to getFrame, live heap', 'neverLive', 'oursLive', { atLeast: 10 }],
      ['getFrame with live heap to without', 'oursLive', 'ours', { atMost: 1.5 }],
    ],
  },
  {
    name: 'store',
    title: 'Shared memory: storing a frame of 1280x720',
    unit: 'microseconds',
    program: 'native/shared_memory_bench',
    rows: [
      ['hot1', 'storeVideoFrame, again and again, 1 stream', '', 'hotStore1'],
      ['hotCopy1', 'memcpy, again and again, 1 stream', '', 'hotCopy1'],
      ['hot10', 'storeVideoFrame, again and again, 10 streams', '', 'hotStore10'],
      ['hotCopy10', 'memcpy, again and again, 10 streams', '', 'hotCopy10'],
      ['hot50', 'storeVideoFrame, again and again, 50 streams', '', 'hotStore50'],
      ['hotCopy50', 'memcpy, again and again, 50 streams', '', 'hotCopy50'],
      ['cold1', 'storeVideoFrame, caches empty, 1 stream', '', 'coldStore1'],
      ['coldCopy1', 'memcpy, caches empty, 1 stream', '', 'coldCopy1'],
      ['cold10', 'storeVideoFrame, caches empty, 10 streams', '', 'coldStore10'],
      ['cold50', 'storeVideoFrame, caches empty, 50 streams', '', 'coldStore50'],
      ['coldCopy50', 'memcpy, caches empty, 50 streams', '', 'coldCopy50'],
      ['lock', 'lock and unlock, without contention', '', 'lock'],
    ],
    ratios: [
      ['storeVideoFrame to memcpy, 1 stream', 'hot1', 'hotCopy1', { atMost: 1.05 }],
      ['storeVideoFrame to memcpy, 10 streams', 'hot10', 'hotCopy10', { atMost: 1.05 }],
      ['storeVideoFrame to memcpy, 50 streams', 'hot50', 'hotCopy50', { atMost: 1.05 }],
      ['storeVideoFrame to memcpy, caches empty', 'cold1', 'coldCopy1', { atMost: 1.05 }],
      ['10 streams to 1, caches empty', 'cold10', 'cold1', { atMost: 1.2 }],
      ['50 streams to 1, caches empty', 'cold50', 'cold1', { atMost: 1.2 }],
      ['memcpy, 50 streams to 1, caches empty', 'coldCopy50', 'coldCopy1', {}],
      ['50 streams to 1, again and again', 'hot50', 'hot1', {}],
      ['memcpy, 50 streams to 1, again and again', 'hotCopy50', 'hotCopy1', {}],
    ],
  },
  {
    name: 'widget',
    title: 'Shared memory: frames of 1280x720 from a main process to a widget',
    unit: 'frames per second',
    script: 'widget_frames',
    number: 'framesPerSecond',
    rows: WIDGET_ROWS,
    ratios: [
      ['shared memory to messages', 'ours', 'messages', { atLeast: 5 }],
      ['shared memory to the socket', 'ours', 'socket', { atLeast: 2.5 }],
    ],
  },
  {
    name: 'processor',
    title: 'Shared memory: what such a frame costs both processes',
    unit: 'milliseconds of processor time for 1,000 frames',
    script: 'widget_frames',
    number: 'milliseconds',
    rows: WIDGET_ROWS,
    ratios: [
      ['shared memory to messages', 'ours', 'messages', { atMost: 1 / 5 }],
      ['shared memory to the socket', 'ours', 'socket', { atMost: 1 / 3 }],
      ['10 streams to 1', 'ours10', 'ours', { atMost: 1.2 }],
      ['50 streams to 1', 'ours50', 'ours', { atMost: 1.2 }],
    ],
  },
  {
    name: 'proxy',
    title: 'Shared memory: reading a frame in each turn of the event loop',
    unit: 'microseconds for each frame',
    script: 'frame_cost',
    number: 'microseconds',
    rows: [
      ['main', 'getFrame of the main process', 'getFrame 0'],
      ['proxy', 'getFrame and releaseFrame of the widget', 'proxy 0'],
    ],
    ratios: [['widget to main process', 'proxy', 'main', { atMost: 1.1 }]],
  },
];

function runProcess({ script, program }, args) {
  const command = program
    ? [fileURLToPath(new URL(`../build/release/bench/${program}`, import.meta.url))]
    : [process.execPath, fileURLToPath(new URL(`${script}.mjs`, import.meta.url))];
  const [file, ...words] = [...command, ...args.split(' ').filter(Boolean)];
  return JSON.parse(execFileSync(file, words, { encoding: 'utf8' }));
}

// The numbers of each round of a script or program, by its arguments; groups that use different
// numbers of the same processes share them.
const measured = new Map();

// The numbers of each round: [{ row name: number }].
function measure({ name, script, program, number: groupNumber, rows }) {
  const processes = new Set(rows.map(([, , args]) => args));
  return Array.from({ length: ROUNDS }, (_, round) => {
    process.stderr.write(`${name}: round ${round + 1} of ${ROUNDS}\n`);
    const results = new Map(
      [...processes].map((args) => {
        const key = `${script ?? program} ${args} ${round}`;
        if (!measured.has(key)) measured.set(key, runProcess({ script, program }, args));
        return [args, measured.get(key)];
      }),
    );
    return Object.fromEntries(
      rows.map(([row, , args, number = groupNumber]) => [row, results.get(args)[number]]),
    );
  });
}

function formatNumber(number) {
  return number.toLocaleString('en', { maximumSignificantDigits: 3 });
}

// Cells aligned, so that the source reads as a table too.
function table(header, lines) {
  const widths = header.map((_, column) =>
    Math.max(3, ...[header, ...lines].map((line) => line[column].length)),
  );
  const format = (line) => {
    const [label, ...cells] = line.map((cell, column) =>
      column === 0 ? cell.padEnd(widths[0]) : cell.padStart(widths[column]),
    );
    return `| ${[label, ...cells].join(' | ')} |`;
  };
  const rule = widths.map((width, column) =>
    column === 0 ? '-'.repeat(width) : `${'-'.repeat(width - 1)}:`,
  );
  return [header, rule, ...lines].map(format).join('\n');
}

function judge(ratio, { atLeast, atMost }) {
  if (atLeast !== undefined)
    return [`at least ${formatNumber(atLeast)}`, ratio >= atLeast ? 'met' : 'missed'];
  if (atMost !== undefined)
    return [`at most ${formatNumber(atMost)}`, ratio <= atMost ? 'met' : 'missed'];
  return ['', ''];
}

function report(group) {
  const load = `The machine's load when it began: ${os.loadavg()[0].toFixed(1)}.`;
  const rounds = measure(group);
  const values = table(
    ['', group.unit, 'lowest', 'highest'],
    group.rows.map(([row, label]) => {
      const numbers = rounds.map((round) => round[row]);
      return [
        label,
        ...[median(numbers), Math.min(...numbers), Math.max(...numbers)].map(formatNumber),
      ];
    }),
  );
  const ratios = table(
    ['', 'ratio', 'goal', ''],
    group.ratios.map(([label, of, to, goal]) => {
      const ratio = median(rounds.map((round) => round[of] / round[to]));
      return [label, formatNumber(ratio), ...judge(ratio, goal)];
    }),
  );
  return `### ${group.title}\n\n${values}\n\n${ratios}\n\n${load}\n`;
}

function machine() {
  const cache = readFileSync(new URL('../build/release/CMakeCache.txt', import.meta.url), 'utf8');
  const [, compiler] = cache.match(/^CMAKE_CXX_COMPILER:\w+=(.*)$/m);
  const [version] = execFileSync(compiler, ['--version'], { encoding: 'utf8' }).split('\n');
  const cpus = os.cpus();
  return [
    `${cpus[0].model}, ${cpus.length} cores, ${Math.round(os.totalmem() / 2 ** 30)} GiB of memory`,
    `Linux ${os.release()}`,
    `Node.js ${process.version}, ${version}, the release preset`,
    `medians of ${ROUNDS} rounds`,
  ]
    .map((line) => `- ${line}`)
    .join('\n');
}

// The document with a new description of the machine.
function withMachine(text) {
  return text.replace(/(?<=^## Results\n\n)(- .*\n)+/m, () => `${machine()}\n`);
}

// The document with a group's section replaced, or added at the end.
function withSection(text, section) {
  const [title] = section.split('\n');
  const start = text.indexOf(`${title}\n`);
  if (start < 0) return `${text.trimEnd()}\n\n${section}`;
  const next = text.indexOf('\n### ', start);
  return text.slice(0, start) + section + (next < 0 ? '' : text.slice(next));
}

const options = process.argv.slice(2);
const write = options.includes('--write');
const wanted = options.filter((option) => option !== '--write');
const names = groups.map(({ name }) => name);
if (wanted.some((name) => !names.includes(name))) {
  console.error(`usage: npm run bench [-- GROUP...] [-- --write], of: ${names.join(' ')}`);
  process.exit(2);
}

console.log(`${machine()}\n`);
for (const group of groups) {
  if (wanted.length > 0 && !wanted.includes(group.name)) continue;
  const section = report(group);
  console.log(section);
  if (write) {
    const text = readFileSync(DOCUMENT, 'utf8');
    writeFileSync(DOCUMENT, withMachine(withSection(text, section)));
  }
}
