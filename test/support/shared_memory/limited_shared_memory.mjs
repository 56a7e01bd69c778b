// A process whose /dev/shm can be filled up without anybody else noticing.
//
// Where the system allows it (to root, or in a user namespace), the process gets a small /dev/shm of
// its own in a mount namespace, which is filled with a file. Elsewhere the size of the files that it
// may make is limited instead, which refuses it the same calls with another error.

import { execFileSync, spawnSync } from 'node:child_process';
import { closeSync, openSync, rmSync, writeSync } from 'node:fs';

const SIZE = '8m'; // three streams, and something

const WITHOUT_RUNTIME = { env: { ...process.env, LD_PRELOAD: '' } };
const maySay = (...words) => spawnSync(words[0], words.slice(1), WITHOUT_RUNTIME).status === 0;

// A shell's script in front of node, which alone gets the sanitizers' runtime back.
function before(prefix, script) {
  const runtime = process.env.LD_PRELOAD ?? '';
  const node = `exec env LD_PRELOAD='${runtime}' "$@"`;
  return [...prefix, 'sh', '-c', `${script} && ${node}`, 'sh'];
}

function ownFileSystem(unshare, nsenter) {
  const fillerOf = ({ pid }) => `/proc/${pid}/root/dev/shm/filler`;
  return {
    command: before(unshare, `mount -t tmpfs -o size=${SIZE} tmpfs /dev/shm`),
    // For another process that is to see the same /dev/shm.
    commandBeside: ({ pid }) => before([...nsenter, '-t', `${pid}`], 'true'),
    fill(process) {
      const fd = openSync(fillerOf(process), 'w');
      try {
        for (;;) writeSync(fd, Buffer.alloc(4096));
      } catch (error) {
        if (error.code !== 'ENOSPC') throw error;
      } finally {
        closeSync(fd);
      }
    },
    empty: (process) => rmSync(fillerOf(process)),
    error: 28, // no space left on device
  };
}

function limitedFiles() {
  const limit = ({ pid }, size) =>
    execFileSync('prlimit', ['--pid', `${pid}`, `--fsize=${size}:`], WITHOUT_RUNTIME);
  return {
    command: before([], "trap '' XFSZ"),
    commandBeside: () => [],
    fill: (process) => limit(process, 4096),
    empty: (process) => limit(process, 'unlimited'),
    error: 27, // file too large
  };
}

// { command, commandBeside, fill, empty, error }: what is put in front of node, how /dev/shm is
// filled and emptied for the process that was started so, and the error number that a full one has.
export function limitedSharedMemory() {
  if (maySay('unshare', '-m', 'true')) return ownFileSystem(['unshare', '-m'], ['nsenter', '-m']);
  if (maySay('unshare', '-rm', 'true')) {
    return ownFileSystem(['unshare', '-rm'], ['nsenter', '-U', '--preserve-credentials', '-m']);
  }
  return limitedFiles();
}
