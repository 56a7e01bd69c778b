'use strict';

// The segments and semaphores that killed processes have left in /dev/shm.

const fs = require('node:fs');
const path = require('node:path');

const { SEGMENT_LAYOUT: layout } = require('./segment_layout.js');

const SHARED_MEMORY = '/dev/shm';

// The names and sizes of the addon's files. The names of a frame segment end with the kind and the
// index of its stream.
const KINDS = [
  { name: /^SHM[0-9A-Za-z]{25}$/, size: layout.mainSegmentSize },
  { name: /^SHM[0-9A-Za-z]{25}[012]-?\d{1,10}$/, size: layout.frameSegmentSize },
  { name: /^sem\.SEM[0-9A-Za-z]{20}([012]-?\d{1,10})?$/, size: layout.semaphoreSize },
];

const identityOf = ({ dev, ino }) => `${dev}:${ino}`;

// What `look` returns, or `otherwise` if a file or process has disappeared in the meantime.
function unlessGone(look, otherwise) {
  try {
    return look();
  } catch (error) {
    if (error.code === 'ENOENT' || error.code === 'ESRCH') return otherwise;
    throw error;
  }
}

// This user's files in `directory` with the name and size of the addon's: { file, identity }.
function candidates(directory) {
  return fs.readdirSync(directory).flatMap((name) => {
    const file = path.join(directory, name);
    const sizes = KINDS.filter((kind) => kind.name.test(name)).map(({ size }) => size);
    if (sizes.length === 0) return [];
    const found = unlessGone(() => fs.lstatSync(file));
    const isOurs = found?.isFile() && found.uid === process.getuid() && sizes.includes(found.size);
    return isOurs ? [{ file, identity: identityOf(found) }] : [];
  });
}

// The files that a process has mapped or open, by identity: a creator opens a segment before it
// maps it, and maps a semaphore before it renames it. `process` is the folder in /proc.
function filesInUse(process) {
  const maps = fs.readFileSync(`${process}/maps`, 'utf8').split('\n');
  const mapped = maps.flatMap((line) => {
    // Address, permissions, offset, device, inode, and the file if there is one.
    const [, , , device, inode] = line.split(/ +/);
    if (inode === undefined || inode === '0') return [];
    const [major, minor] = device.split(':').map((part) => parseInt(part, 16));
    return [identityOf({ dev: deviceNumber(major, minor), ino: inode })];
  });
  const open = fs.readdirSync(`${process}/fd`).flatMap((descriptor) => {
    const found = unlessGone(() => fs.statSync(`${process}/fd/${descriptor}`));
    return found ? [identityOf(found)] : [];
  });
  return [...mapped, ...open];
}

// As the C library's makedev(), for what fits into a number.
function deviceNumber(major, minor) {
  return (major & 0xfff) * 2 ** 8 + (minor & 0xff) + (minor >>> 8) * 2 ** 20;
}

// Whether a process that cannot be inspected, such as one with more rights, may have loaded the
// addon: it is this user's, and its name or one of its threads' is that of Node.js or Electron. An
// application may have changed the process's own name by process.title.
function mayUseSegments(folder) {
  const status = fs.readFileSync(`${folder}/status`, 'utf8');
  if (Number(/^Uid:\s+(\d+)/m.exec(status)[1]) !== process.getuid()) return false;
  const threads = fs
    .readdirSync(`${folder}/task`)
    .map((id) => unlessGone(() => fs.readFileSync(`${folder}/task/${id}/comm`, 'utf8'), ''));
  return /node|electron/i.test(fs.readFileSync(`${folder}/cmdline`, 'utf8') + threads.join());
}

// The files that processes have in use. Throws when a process that may use segments cannot be
// inspected. Other users' processes cannot open this user's segments.
function allFilesInUse(processes) {
  const inUse = new Set();
  for (const id of fs.readdirSync(processes).filter((name) => /^\d+$/.test(name))) {
    const folder = path.join(processes, id);
    try {
      for (const identity of unlessGone(() => filesInUse(folder), [])) inUse.add(identity);
    } catch (error) {
      if (!unlessGone(() => mayUseSegments(folder), false)) continue;
      throw new Error(`process ${id} must not be looked into: ${error.message}`, { cause: error });
    }
  }
  return inUse;
}

// The files in `directory` that are this user's, have the name and size of the addon's, and are not
// used by any process in `processes`.
function leftovers(directory = SHARED_MEMORY, processes = '/proc') {
  const found = candidates(directory);
  if (found.length === 0) return [];
  // After the files are listed, so that a process that opens one of them meanwhile is seen.
  const inUse = allFilesInUse(processes);
  return found
    .filter(({ identity }) => !inUse.has(identity))
    .map(({ file }) => file)
    .sort();
}

// Removes them: { removed, refused }, files and why the others were not removed.
function removeLeftovers(directory = SHARED_MEMORY) {
  const removed = [];
  const refused = [];
  for (const file of leftovers(directory)) {
    try {
      const isRemoved = unlessGone(() => {
        fs.unlinkSync(file);
        return true;
      }, false);
      if (isRemoved) removed.push(file);
    } catch ({ message }) {
      refused.push(message);
    }
  }
  return { removed, refused };
}

module.exports = { SHARED_MEMORY, leftovers, removeLeftovers };
