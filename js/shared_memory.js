'use strict';

// What lies in /dev/shm for a meeting. The addon does not tell when it could not make it, nor when a
// widget that has ended has taken the names away.

const { existsSync, readFileSync } = require('node:fs');

const { nameOf } = require('./stream_key.js');

// The main segment is a table of the streams in widget mode: for each a flag and two names, which end
// with a NUL. "Frames in shared memory", in the documents, has it whole.
const ENTRY_BYTES = 511;
const NAME_BYTES = 255;
const REMOTE_STREAMS = 50;

const bare = (name) => name.replace(/^\//, '');
const fileOfSegment = (name) => `/dev/shm/${bare(name)}`;
const fileOfSemaphore = (name) => `/dev/shm/sem.${bare(name)}`;

function missingFiles({ shm_name: segment, sem_name: semaphore }) {
  return [fileOfSegment(segment), fileOfSemaphore(semaphore)].filter((file) => !existsSync(file));
}

// Of the main segment with these names.
function requireMemory(names, advice = '') {
  const missing = missingFiles(names);
  if (missing.length === 0) return;
  throw new Error(
    `The memory of the meeting is not there, or not any more (missing: ${missing.join(', ')})${advice}`,
  );
}

function requireEntry(stream) {
  const { type, streamIndex } = stream;
  if (type !== 'remote' || (streamIndex >= 0 && streamIndex < REMOTE_STREAMS)) return;
  throw new RangeError(
    `The stream ${nameOf(stream)} cannot enter widget mode: ` +
      `that is for remote streams from 0 to ${REMOTE_STREAMS - 1}`,
  );
}

// Whether the stream, which has an entry, can be opened by a widget with the main segment's `names`.
// To be asked on the thread that writes the table, so that it does not change meanwhile.
function hasFrameMemory(names, { type, streamIndex }) {
  const index = type === 'remote' ? 2 + streamIndex : ['local', 'content'].indexOf(type);
  const start = index * ENTRY_BYTES;
  const entry = readFileSync(fileOfSegment(names.shm_name)).subarray(start, start + ENTRY_BYTES);
  const text = (at) => entry.toString('latin1', at, at + NAME_BYTES).split('\0')[0];
  const isValid = entry[0] !== 0;
  const own = { shm_name: text(1), sem_name: text(1 + NAME_BYTES) };
  return isValid && missingFiles(own).length === 0;
}

module.exports = { hasFrameMemory, requireEntry, requireMemory };
