'use strict';

// Checks of a meeting's segments in /dev/shm. The addon does not report that it could not create
// them, nor that a widget that has ended has removed their names.

const { existsSync, readFileSync } = require('node:fs');

const { SEGMENT_LAYOUT: layout } = require('./segment_layout.js');
const { nameOf } = require('./stream_key.js');

const bare = (name) => name.replace(/^\//, '');
const fileOfSegment = (name) => `/dev/shm/${bare(name)}`;
const fileOfSemaphore = (name) => `/dev/shm/sem.${bare(name)}`;

function missingFiles({ shm_name: segment, sem_name: semaphore }) {
  return [fileOfSegment(segment), fileOfSemaphore(semaphore)].filter((file) => !existsSync(file));
}

// Throws when a file of the main segment with these names is missing.
function requireMemory(names, advice = '') {
  const missing = missingFiles(names);
  if (missing.length === 0) return;
  throw new Error(
    `The memory of the meeting is not there, or not any more (missing: ${missing.join(', ')})${advice}`,
  );
}

function requireEntry(stream) {
  const { type, streamIndex } = stream;
  const last = layout.remoteStreams - 1;
  if (type !== 'remote' || (streamIndex >= 0 && streamIndex <= last)) return;
  throw new RangeError(
    `The stream ${nameOf(stream)} cannot enter widget mode: ` +
      `that is for remote streams from 0 to ${last}`,
  );
}

function entryOf({ type, streamIndex }) {
  if (type === 'local') return layout.localEntry;
  if (type === 'content') return layout.contentEntry;
  return layout.firstRemoteEntry + streamIndex;
}

// Whether the stream, which has an entry, can be opened by a widget with the main segment's `names`.
// Must be called on the thread that writes the table, so that it does not change meanwhile.
function hasFrameMemory(names, stream) {
  const start = entryOf(stream) * layout.entrySize;
  const segment = readFileSync(fileOfSegment(names.shm_name));
  const entry = segment.subarray(start, start + layout.entrySize);
  const text = (at) => entry.toString('latin1', at, at + layout.nameSize).split('\0')[0];
  const own = { shm_name: text(layout.shmNameOffset), sem_name: text(layout.semNameOffset) };
  return entry[layout.validOffset] !== 0 && missingFiles(own).length === 0;
}

module.exports = { hasFrameMemory, requireEntry, requireMemory };
