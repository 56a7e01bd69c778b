'use strict';

// What lies in /dev/shm, in bytes: the addon's shared_memory_layout.h, which a test holds this
// against. "Frames in shared memory", in the documents, says what the fields mean.
const SEGMENT_LAYOUT = Object.freeze({
  // An entry of the main segment, for one stream.
  entrySize: 511,
  validOffset: 0,
  shmNameOffset: 1,
  semNameOffset: 256,
  nameSize: 255,
  // The entries' order.
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
