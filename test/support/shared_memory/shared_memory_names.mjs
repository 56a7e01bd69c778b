// What lies in /dev/shm under the names of the addon's segments and semaphores.

import { readFileSync, readdirSync, rmSync, statSync } from 'node:fs';
import path from 'node:path';

const DIRECTORY = '/dev/shm';
const FILE = /^(SHM[0-9A-Za-z]{25}|sem\.SEM[0-9A-Za-z]{20})([012]\d{1,2})?$/;
// Who has just made an object needs a moment to map it.
const YOUNGEST_MS = 60_000;

// The files of a pair of names.
export const fileOfSegment = (shmName) => path.join(DIRECTORY, shmName);
export const fileOfSemaphore = (semName) => path.join(DIRECTORY, `sem.${semName.slice(1)}`);

// The files of all segments and semaphores that a process says it created or opened.
export function filesNamedIn(lines) {
  return lines.flatMap((line) => {
    const [, shmName, semName] =
      line.match(/^initialize: .* name:(\/\w+), SEM name:(\/\w+)$/) ?? [];
    return shmName ? [fileOfSegment(shmName), fileOfSemaphore(semName)] : [];
  });
}

// The pairs of names of the frame segments that a main process has made, in their order.
export function frameSegmentsOf({ lines }) {
  return lines.flatMap((line) => {
    const [, shm, sem] =
      line.match(/^enableSharedMemory: .*SHMname:(\/\w+), SEMname:(\/\w+)$/) ?? [];
    return shm ? [{ shm_name: shm, sem_name: sem }] : [];
  });
}

// The inodes of what any process has mapped out of /dev/shm. By its path a semaphore would not be
// found with its creator, who mapped it under another name before it was given its own.
function inodesInUse() {
  const mapped = readdirSync('/proc')
    .filter((name) => /^\d+$/.test(name))
    .flatMap((pid) => {
      try {
        const maps = readFileSync(`/proc/${pid}/maps`, 'latin1');
        return maps.match(/\d+(?= +\/dev\/shm\/)/g) ?? [];
      } catch {
        return []; // it has ended, or is another user's
      }
    });
  return new Set(mapped.map(Number));
}

// Removes what processes that were killed have left: this user's files that nobody has mapped.
export function removeLeftovers() {
  const files = readdirSync(DIRECTORY)
    .filter((name) => FILE.test(name))
    .map((name) => path.join(DIRECTORY, name));
  const used = inodesInUse();
  for (const file of files) {
    const status = statSync(file, { throwIfNoEntry: false });
    if (status?.uid !== process.getuid() || used.has(status.ino)) continue;
    if (Date.now() - status.mtimeMs >= YOUNGEST_MS) rmSync(file, { force: true });
  }
}
