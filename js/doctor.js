'use strict';

// Looks at everything outside the package that it needs to work.

const fs = require('node:fs');
const path = require('node:path');

const { OVERRIDE, addonPath, loadAddon } = require('./load_addon.js');
const { engines } = require('../package.json');

const SHARED_MEMORY = '/dev/shm';
// What one stream in widget mode takes: its segment and the page of its semaphore.
const STREAM_BYTES = 2_076_672 + 4096;

// What is 'bad' keeps meetings or widgets from working; a 'warning' does not.
const good = (text, advice) => ({ rank: 'good', text, advice });
const warning = (text, advice) => ({ rank: 'warning', text, advice });
const bad = (text, advice) => ({ rank: 'bad', text, advice });

const INDENT = ' '.repeat(9);
const LABELS = { good: 'ok     ', warning: 'warning', bad: 'problem' };

const megabytes = (bytes) => `${(bytes / 1e6).toFixed(1)} MB`;

function checkNode({ version, platform, arch }) {
  const minimum = engines.node.replace('>=', '');
  const text = `node ${version} on ${platform} ${arch}`;
  if (platform !== 'linux' || arch !== 'x64') {
    return bad(text, 'The addon runs on linux x64 alone.');
  }
  const order = new Intl.Collator('en', { numeric: true });
  return order.compare(version, minimum) < 0
    ? bad(text, `Install Node.js ${minimum} or newer.`)
    : good(text);
}

// Of the addon and, when it can be loaded, of the engine that the system's loader found for it.
function checkAddon() {
  try {
    loadAddon();
  } catch (error) {
    const [text, ...advice] = error.message.split('\n');
    return [bad(text, advice.join(' '))];
  }
  const named = process.env[OVERRIDE] ? `, which ${OVERRIDE} names` : '';
  return [good(`addon ${addonPath()}${named}`), checkEngine()];
}

function checkEngine() {
  const maps = fs.readFileSync('/proc/self/maps', 'utf8');
  // Behind address, rights, offset, device and inode; the name may have spaces.
  const file = maps.match(/^(?:\S+ +){5}(\/.*\/libtesselclient\.so.*)$/m)?.[1];
  if (!file) return bad('engine: the addon has none', 'Build it against an engine library.');
  if (path.dirname(file) === path.dirname(fs.realpathSync(addonPath()))) {
    return good(`engine ${file}`);
  }
  const reason = process.env.LD_LIBRARY_PATH
    ? `LD_LIBRARY_PATH is ${process.env.LD_LIBRARY_PATH}.`
    : 'The addon was built against it.';
  return good(`engine ${file}`, `It is not the one beside the addon: ${reason}`);
}

function checkSpace({ bsize, blocks, bavail }, directory = SHARED_MEMORY) {
  const free = bavail * bsize;
  const streams = Math.floor(free / STREAM_BYTES);
  const text = `${directory}: ${megabytes(blocks * bsize)}, ${megabytes(free)} free, room for streams in widget mode: ${streams}`;
  return streams > 0
    ? good(text)
    : bad(
        text,
        'Give a container more with --shm-size=256m, a machine with: mount -o remount,size=256M /dev/shm',
      );
}

function checkRights(directory = SHARED_MEMORY) {
  try {
    fs.accessSync(directory, fs.constants.R_OK | fs.constants.W_OK | fs.constants.X_OK);
  } catch (error) {
    return bad(
      `${directory}: ${error.message}`,
      `Mount a tmpfs there that everybody may write to: mount -t tmpfs -o mode=1777 tmpfs ${directory}`,
    );
  }
  const { mode } = fs.statSync(directory);
  return (mode & 0o1002) === 0o0002
    ? bad(
        `${directory}: everybody may remove everybody's files`,
        `Set the sticky bit: chmod +t ${directory}`,
      )
    : good(`${directory}: may be written to`);
}

// The names in `directory` of segments and semaphores that no process has mapped. Those whose users
// cannot be seen, being another user's, are left out.
function leftovers(directory = SHARED_MEMORY) {
  const names = fs
    .readdirSync(directory)
    .filter((name) => /^(SHM[0-9A-Za-z]{25}\d*|sem\.SEM[0-9A-Za-z]{20}\d*)$/.test(name));
  if (names.length === 0) return [];
  const mapped = mappedInodes(directory);
  return names
    .map((name) => path.join(directory, name))
    .filter((file) => {
      const found = fs.statSync(file, { throwIfNoEntry: false });
      const isOurs = process.getuid() === 0 || process.getuid() === found?.uid;
      return found && isOurs && !mapped.has(`${found.ino}`);
    })
    .sort();
}

// The inode numbers of the files in `directory` that the processes which may be looked at have
// mapped. A semaphore is mapped under a name of before, so names do not tell.
function mappedInodes(directory) {
  const maps = (id) => {
    try {
      return fs.readFileSync(`/proc/${id}/maps`, 'utf8');
    } catch {
      return ''; // it has ended, or is another user's
    }
  };
  const processes = fs.readdirSync('/proc').filter((name) => /^\d+$/.test(name));
  const lines = processes.flatMap((id) => maps(id).split('\n'));
  // Address, rights, offset, device, inode, file.
  return new Set(
    lines.filter((line) => line.includes(` ${directory}/`)).map((line) => line.split(/ +/)[4]),
  );
}

function checkLeftovers(directory = SHARED_MEMORY) {
  const files = leftovers(directory);
  return files.length === 0
    ? good('no segments are left over')
    : warning(
        [`${files.length} names are left over from processes that were killed:`, ...files].join(
          '\n',
        ),
        `Remove them: rm ${files.join(' ')}`,
      );
}

// All findings: { rank, text, advice } with what to do about it, or what else to know.
function examine() {
  const { node: version } = process.versions;
  const findings = [
    checkNode({ version, platform: process.platform, arch: process.arch }),
    ...checkAddon(),
    checkRights(),
  ];
  if (findings.at(-1).rank === 'bad') return findings;
  return [...findings, checkSpace(fs.statfsSync(SHARED_MEMORY)), checkLeftovers()];
}

// What the command prints about `findings`, and what it ends with.
function report(findings) {
  const lines = findings.flatMap(({ rank, text, advice }) => [
    ...`${LABELS[rank]}  ${text}`
      .split('\n')
      .map((line, index) => (index > 0 ? INDENT : '') + line),
    ...(advice ? [`${INDENT}-> ${advice}`] : []),
  ]);
  return { lines, exitCode: findings.some(({ rank }) => rank === 'bad') ? 1 : 0 };
}

module.exports = { checkLeftovers, checkNode, checkRights, checkSpace, examine, report };
