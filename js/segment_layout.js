'use strict';

// The layout of the segments in /dev/shm, in bytes. A test compares it with the addon's
// shared_memory_layout.h. docs/shared-memory.md describes the fields.
const SEGMENT_LAYOUT = Object.freeze({
  // An entry of the main segment, for one stream.
  entrySize: 511,
  validOffset: 0,
  shmNameOffset: 1,
  semNameOffset: 256,
  nameSize: 255,
  // The order of the entries.
  localEntry: 0,
  contentEntry: 1,
  firstRemoteEntry: 2,
  remoteStreams: 50,
  // Files.
  mainSegmentSize: 26_572,
  frameSegmentSize: 2_073_640,
  semaphoreSize: 32,
});

module.exports = { SEGMENT_LAYOUT };
