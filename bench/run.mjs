// npm run bench [-- GROUP] [-- --write]
//
// Runs the benchmarks, or one group of them. Every alternative runs in a process of its own, since
// what a process has run before changes how its JavaScript is compiled, and the alternatives take
// turns, round by round, so that a machine that slows down slows all of them. Prints the medians of
// the rounds, and the ratios that matter beside their goals: each is the median of the rounds' own
// ratios. --write puts everything into docs/performance.md.

import { execFileSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import os from 'node:os';
import { fileURLToPath } from 'node:url';
import { median } from './statistics.mjs';

const ROUNDS = 5;
const DOCUMENT = fileURLToPath(new URL('../docs/performance.md', import.meta.url));

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
];

function runProcess(script, args) {
  const file = fileURLToPath(new URL(`${script}.mjs`, import.meta.url));
  const output = execFileSync(process.execPath, [file, ...args.split(' ')], { encoding: 'utf8' });
  return JSON.parse(output);
}

// The numbers of each round: [{ row name: number }].
function measure({ name, script, number: groupNumber, rows }) {
  const processes = new Set(rows.map(([, , args]) => args));
  return Array.from({ length: ROUNDS }, (_, round) => {
    process.stderr.write(`${name}: round ${round + 1} of ${ROUNDS}\n`);
    const results = new Map([...processes].map((args) => [args, runProcess(script, args)]));
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
  if (atLeast !== undefined) return [`at least ${atLeast}`, ratio >= atLeast ? 'met' : 'missed'];
  if (atMost !== undefined) return [`at most ${atMost}`, ratio <= atMost ? 'met' : 'missed'];
  return ['', ''];
}

function report(group) {
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
  return `### ${group.title}\n\n${values}\n\n${ratios}\n`;
}

function machine() {
  const cache = readFileSync(new URL('../build/release/CMakeCache.txt', import.meta.url), 'utf8');
  const [, compiler] = cache.match(/^CMAKE_CXX_COMPILER:\w+=(.*)$/m);
  const [version] = execFileSync(compiler, ['--version'], { encoding: 'utf8' }).split('\n');
  const cpus = os.cpus();
  return [
    `${cpus[0].model}, ${cpus.length} cores, ${Math.round(os.totalmem() / 2 ** 30)} GiB of memory`,
    `Linux ${os.release()}, load ${os.loadavg()[0].toFixed(1)} when the measurement began`,
    `Node.js ${process.version}, ${version}, the release preset`,
    `medians of ${ROUNDS} rounds`,
  ]
    .map((line) => `- ${line}`)
    .join('\n');
}

const options = process.argv.slice(2);
const write = options.includes('--write');
const wanted = options.filter((option) => option !== '--write');
const chosen = wanted.length === 0 ? groups : groups.filter(({ name }) => wanted.includes(name));
if (chosen.length !== (wanted.length || groups.length) || (write && chosen !== groups)) {
  const names = groups.map(({ name }) => name).join('|');
  console.error(`usage: npm run bench [-- ${names}], or npm run bench -- --write for all of them`);
  process.exit(2);
}

const sections = [machine()];
console.log(`${sections[0]}\n`);
for (const group of chosen) {
  sections.push(report(group));
  console.log(sections.at(-1));
}
if (write) {
  const [before] = readFileSync(DOCUMENT, 'utf8').split(/(?<=^## Results\n)/m);
  writeFileSync(DOCUMENT, `${before}\n${sections.join('\n\n').replaceAll('\n\n\n', '\n\n')}`);
}
