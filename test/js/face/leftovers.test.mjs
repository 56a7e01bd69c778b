// The leftovers of killed processes in /dev/shm: which files count as leftovers, and their removal.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs, {
  closeSync,
  existsSync,
  mkdirSync,
  openSync,
  readdirSync,
  symlinkSync,
  truncateSync,
  writeFileSync,
} from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { startProcess } from '../../support/commanded_process.mjs';
import { limitedSharedMemory } from '../../support/shared_memory/limited_shared_memory.mjs';
import { filesNamedIn } from '../../support/shared_memory/shared_memory_names.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { repository } from '../../support/build.mjs';
import { requireFace } from '../../support/face.mjs';

const { leftovers } = requireFace('./leftovers.js');
const { checkLeftovers, clean } = requireFace('./doctor.js');
const { SEGMENT_LAYOUT } = requireFace('./segment_layout.js');

const MAIN = SEGMENT_LAYOUT.mainSegmentSize;
const FRAME = SEGMENT_LAYOUT.frameSegmentSize;
const SEMAPHORE = SEGMENT_LAYOUT.semaphoreSize;
const CHARACTERS = 'abcdefghijKLMNOPQRST';

// What processes of this user leave behind, with its size.
const OURS = [
  [`SHM${CHARACTERS}01234`, MAIN],
  [`SHM${CHARACTERS}0123413`, FRAME],
  [`SHM${CHARACTERS}0123400`, FRAME],
  [`SHM${CHARACTERS}012342-1`, FRAME],
  [`sem.SEM${CHARACTERS}`, SEMAPHORE],
  [`sem.SEM${CHARACTERS}149`, SEMAPHORE],
];
// What is another's, or cannot be known as theirs.
const OTHERS = [
  [`SHM${CHARACTERS}01235`, MAIN - 1],
  [`SHM${CHARACTERS}0123`, MAIN],
  [`SHM${CHARACTERS}01236`, FRAME],
  [`SHM${CHARACTERS}0123513`, MAIN],
  [`SHM${CHARACTERS}0123533`, FRAME],
  [`SHM${CHARACTERS}0123a13`, 0],
  [`SHM${CHARACTERS}0_234`, MAIN],
  [`sem.SEM${CHARACTERS}-`, SEMAPHORE],
  [`sem.SEM${CHARACTERS}15`, SEMAPHORE + 1],
  ['sem.other', SEMAPHORE],
  ['other', MAIN],
];

function makeFile(directory, [name, size]) {
  const file = path.join(directory, name);
  writeFileSync(file, '');
  truncateSync(file, size);
  return file;
}

// A directory with those files, and what is named like them and is no file.
function makeDirectory(t) {
  const directory = temporaryDirectory(t);
  const ours = OURS.map((each) => makeFile(directory, each));
  for (const each of OTHERS) makeFile(directory, each);
  mkdirSync(path.join(directory, `SHM${CHARACTERS}01237`));
  // The size of a symbolic link is that of its text.
  symlinkSync('x'.repeat(SEMAPHORE), path.join(directory, `sem.SEM${CHARACTERS}12`));
  return { directory, ours: ours.sort() };
}

test('unused files with the name and the size of a segment or a semaphore are leftovers', (t) => {
  const { directory, ours } = makeDirectory(t);
  assert.deepEqual(leftovers(directory), ours);
  assert.deepEqual(checkLeftovers(directory), {
    rank: 'warning',
    text: ['6 names left over from processes that were killed:', ...ours].join('\n'),
    advice: 'Remove them: npx tessel-wrapper doctor --clean',
  });
  const uid = process.getuid();
  t.mock.method(process, 'getuid', () => uid + 1); // now they are another user's
  assert.deepEqual(leftovers(directory), []);
});

test('cleaning removes the leftovers only, and lists them', (t) => {
  const { directory, ours } = makeDirectory(t);
  const before = readdirSync(directory).length;
  assert.deepEqual(clean(directory), {
    rank: 'good',
    text: ['removed 6 names that no process used:', ...ours].join('\n'),
    advice: undefined,
  });
  assert.deepEqual(ours.filter(existsSync), []);
  assert.equal(readdirSync(directory).length, before - ours.length);
  assert.equal(clean(directory).text, 'no segments are left over');
  assert.equal(checkLeftovers(directory).text, 'no segments are left over');
});

test('cleaning says what it cannot remove and why, and removes the rest', (t) => {
  const { directory, ours } = makeDirectory(t);
  const [kept, ...gone] = ours;
  const { unlinkSync } = fs;
  t.mock.method(fs, 'unlinkSync', (file) => {
    if (file === kept) throw new Error(`EPERM: operation not permitted, unlink '${file}'`);
    unlinkSync(file);
  });
  assert.deepEqual(clean(directory), {
    rank: 'bad',
    text: [
      'cannot remove 1 name:',
      `EPERM: operation not permitted, unlink '${kept}'`,
      'removed 5 names that no process used:',
      ...gone,
    ].join('\n'),
    advice: undefined,
  });
  assert.deepEqual(ours.filter(existsSync), [kept]);
});

test('what a process has only open, as one that is about to map it, is not left over', (t) => {
  const directory = temporaryDirectory(t);
  const file = makeFile(directory, OURS[0]);
  const descriptor = openSync(file);
  assert.deepEqual(leftovers(directory), []);
  closeSync(descriptor);
  assert.deepEqual(leftovers(directory), [file]);
});

// A stand-in for /proc with one process, whose memory must not be looked into.
function makeProcesses(t, { name, threads, uid }) {
  const processes = temporaryDirectory(t);
  const folder = path.join(processes, '77');
  mkdirSync(path.join(folder, 'maps'), { recursive: true }); // reading it fails
  writeFileSync(path.join(folder, 'status'), `Name:\t${name}\nUid:\t${uid}\t0\t0\t0\n`);
  writeFileSync(path.join(folder, 'cmdline'), `/usr/bin/${name}\0--option\0`);
  threads.forEach((thread, id) => {
    mkdirSync(path.join(folder, 'task', `${id}`), { recursive: true });
    writeFileSync(path.join(folder, 'task', `${id}`, 'comm'), `${thread}\n`);
  });
  return processes;
}

test('no file counts as a leftover while another node process cannot be inspected', (t) => {
  const directory = temporaryDirectory(t);
  const file = makeFile(directory, OURS[0]);
  const uid = process.getuid();
  const refusal = /^Error: process 77 must not be looked into: EISDIR/;
  for (const given of [
    { name: 'node', threads: ['node'], uid },
    { name: 'my-title', threads: ['my-title', 'node'], uid },
    { name: 'electron', threads: ['electron'], uid },
  ]) {
    assert.throws(() => leftovers(directory, makeProcesses(t, given)), refusal);
  }
  for (const given of [
    { name: 'ssh-agent', threads: ['ssh-agent'], uid },
    { name: 'node', threads: ['node'], uid: uid + 1 },
  ]) {
    assert.deepEqual(leftovers(directory, makeProcesses(t, given)), [file]);
  }
});

test('an unknown state is a warning, and a problem when cleaning was requested', (t) => {
  const directory = path.join(temporaryDirectory(t), 'none');
  assert.match(checkLeftovers(directory).text, /^cannot tell whether .*: ENOENT/);
  assert.equal(checkLeftovers(directory).rank, 'warning');
  assert.match(clean(directory).text, /^cannot remove .*: ENOENT/);
  assert.equal(clean(directory).rank, 'bad');
});

const STREAM = { type: 'remote', streamIndex: 0 };

// A meeting's process with a stream in widget mode.
async function startMeeting(t, command) {
  const meeting = startProcess(t, './support/processes/face_meeting_process.mjs', { command });
  await meeting.does('join', 'tessel:demo?participants=1', 1);
  await meeting.does('enter', STREAM);
  return meeting;
}

test('the doctor removes the files of a killed meeting and keeps those of a running one', async (t) => {
  const shm = limitedSharedMemory();
  const living = await startMeeting(t, shm.command);
  const killed = await startMeeting(t, shm.commandBeside(living));
  await killed.kill();
  const filesOf = ({ lines }) => [...new Set(filesNamedIn(lines))].sort();
  const seen = (file) => `/proc/${living.pid}/root${file}`;
  assert.deepEqual([filesOf(living).length, filesOf(killed).length], [4, 4]);
  assert.ok(filesOf(killed).every((file) => existsSync(seen(file))));

  const doctor = (...options) => {
    const prefix = shm.commandBeside(living);
    const command = path.join(repository, 'bin/tessel-wrapper.js');
    const [program, ...words] = [...prefix, process.execPath, command, 'doctor', ...options];
    const { status, stdout, error } = spawnSync(program, words, {
      encoding: 'utf8',
      env: { ...process.env, ...(prefix.length > 0 && { LD_PRELOAD: '' }) },
    });
    if (error) throw error;
    assert.equal(status, 0, stdout);
    for (const file of filesOf(living)) assert.ok(!stdout.includes(file), stdout);
    return stdout;
  };
  const listed = filesOf(killed)
    .map((file) => ` {9}${file}\n`)
    .join('(?: {9}.*\n)*');
  assert.match(
    doctor(),
    new RegExp(`^warning {2}\\d+ names left over .*\n( {9}.*\n)*${listed}`, 'm'),
  );
  assert.match(
    doctor('--clean'),
    new RegExp(`^ok {7}removed \\d+ names .*\n( {9}.*\n)*${listed}`, 'm'),
  );
  assert.ok(!filesOf(killed).some((file) => existsSync(seen(file))));
  assert.ok(filesOf(living).every((file) => existsSync(seen(file))));
  await living.ends();
});
