// Segments and semaphores made by hand, as nobody who keeps to the rules would make them, and bytes
// written into those that the addon made. See docs/shared-memory.md for the layout.

import { closeSync, openSync, readSync, rmSync, writeFileSync, writeSync } from 'node:fs';
import { randomBytes } from 'node:crypto';

import { fileOfSegment, fileOfSemaphore } from './shared_memory_names.mjs';

export const MAIN_SEGMENT_SIZE = 26_572;
export const FRAME_SEGMENT_SIZE = 2_073_640;
const ENTRY_SIZE = 511;
const NAME_SIZE = 255;
const FIRST_REMOTE_ENTRY = 2;
// Of the C library's sem_t, which begins with its count, how many wait for it, and the mark of one that
// processes share, in 32 bits each.
const SEMAPHORE_SIZE = 32;
const SHARED = 128;

// Characters as the addon's own names have them, so that removeLeftovers() finds these too.
function freshNames() {
  const characters = randomBytes(25).toString('hex').slice(0, 25);
  return { shm_name: `/SHM${characters}`, sem_name: `/SEM${characters.slice(0, 20)}` };
}

function semaphoreBytes(count) {
  const bytes = Buffer.alloc(SEMAPHORE_SIZE);
  bytes.writeUInt32LE(count);
  bytes.writeUInt32LE(SHARED, 8);
  return bytes;
}

// An object and a semaphore with its count, removed when `test` ends. Answers with their names, as
// getSharedDataInfo() would.
export function makeSegment(test, size, { count = 1 } = {}) {
  const names = freshNames();
  const files = [fileOfSegment(names.shm_name), fileOfSemaphore(names.sem_name)];
  test.after(() => files.forEach((file) => rmSync(file, { force: true, recursive: true })));
  writeFileSync(files[0], Buffer.alloc(size));
  writeFileSync(files[1], semaphoreBytes(count));
  return names;
}

function overwrite(file, bytes, position) {
  const fd = openSync(file, 'r+');
  try {
    writeSync(fd, bytes, 0, bytes.length, position);
  } finally {
    closeSync(fd);
  }
}

export const writeToSegment = (shmName, bytes, position) =>
  overwrite(fileOfSegment(shmName), bytes, position);

export const setCount = (semName, count) =>
  overwrite(fileOfSemaphore(semName), semaphoreBytes(count).subarray(0, 4), 0);

function readAt(fd, length, position) {
  const bytes = Buffer.alloc(length);
  readSync(fd, bytes, 0, length, position);
  return bytes;
}

// A semaphore that stays open when its name goes. Who was killed while waiting counts for ever as a
// waiter.
export function openSemaphore(semName) {
  const fd = openSync(fileOfSemaphore(semName));
  return {
    count: () => readAt(fd, 4, 0).readUInt32LE(),
    waiters: () => readAt(fd, 4, 4).readUInt32LE(),
    close: () => closeSync(fd),
  };
}

export function countOf(semName) {
  const semaphore = openSemaphore(semName);
  try {
    return semaphore.count();
  } finally {
    semaphore.close();
  }
}

// Lists a remote stream in a main segment. The names are strings, or Buffers for the whole field.
export function list(mainShmName, index, { shm_name: shm, sem_name: sem, valid = 1 }) {
  const field = (name) => {
    const bytes = Buffer.alloc(NAME_SIZE);
    Buffer.from(name).copy(bytes);
    return bytes;
  };
  const entry = Buffer.concat([Buffer.from([valid]), field(shm), field(sem)]);
  writeToSegment(mainShmName, entry, (FIRST_REMOTE_ENTRY + index) * ENTRY_SIZE);
}

// The entry of a remote stream in a main segment's file: { valid, shm_name, sem_name }.
export function entryOf(file, index) {
  const fd = openSync(file);
  try {
    const entry = readAt(fd, ENTRY_SIZE, (FIRST_REMOTE_ENTRY + index) * ENTRY_SIZE);
    const name = (at) => entry.toString('latin1', at, entry.indexOf(0, at));
    return { valid: entry[0], shm_name: name(1), sem_name: name(1 + NAME_SIZE) };
  } finally {
    closeSync(fd);
  }
}

// Writes a frame segment's header.
export function writeHeader(shmName, { width, height, sequence = 1n, clearFrame = 0, csrc = 0 }) {
  const header = Buffer.alloc(40);
  header.writeUInt8(clearFrame, 2);
  header.writeBigUInt64LE(sequence, 8);
  header.writeUInt32LE(csrc, 16);
  header.writeUInt32LE(width, 20);
  header.writeUInt32LE(height, 24);
  writeToSegment(shmName, header, 0);
}

// How many frames had been stored in a frame segment before the one that it holds.
export function sequenceOf(shmName) {
  const fd = openSync(fileOfSegment(shmName));
  try {
    return Number(readAt(fd, 8, 8).readBigUInt64LE());
  } finally {
    closeSync(fd);
  }
}
