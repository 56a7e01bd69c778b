'use strict';

// Checks everything outside the package that the package needs.

const fs = require('node:fs');
const path = require('node:path');

const { SHARED_MEMORY, leftovers, removeLeftovers } = require('./leftovers.js');
const { OVERRIDE, addonPath, loadAddon } = require('./load_addon.js');
const { SEGMENT_LAYOUT } = require('./segment_layout.js');
const { engines } = require('../package.json');

// The lines of Node.js with which the addon is tested.
const TESTED_LINES = ['20', '22', '24', '26'];
const PAGE = 4096;
// The memory of one stream in widget mode: the pages of its segment, and one for its semaphore.
const STREAM_BYTES = Math.ceil(SEGMENT_LAYOUT.frameSegmentSize / PAGE) * PAGE + PAGE;

// A 'bad' finding keeps meetings or widgets from working; a 'warning' does not.
const good = (text, advice) => ({ rank: 'good', text, advice });
const warning = (text, advice) => ({ rank: 'warning', text, advice });
const bad = (text, advice) => ({ rank: 'bad', text, advice });

const INDENT = ' '.repeat(9);
const LABELS = { good: 'ok     ', warning: 'warning', bad: 'problem' };

const NOTHING_LEFT = good('no segments are left over');

const megabytes = (bytes) => `${(bytes / 1e6).toFixed(1)} MB`;

function checkNode({ version, platform, arch }) {
  const minimum = engines.node.replace('>=', '');
  const text = `node ${version} on ${platform} ${arch}`;
  if (platform !== 'linux' || arch !== 'x64') {
    return bad(text, 'The addon runs on linux x64 alone.');
  }
  const order = new Intl.Collator('en', { numeric: true });
  if (order.compare(version, minimum) < 0) {
    return bad(text, `Install Node.js ${minimum} or newer.`);
  }
  const [line] = version.split('.');
  return TESTED_LINES.includes(line)
    ? good(text)
    : warning(text, `The addon is tested with Node.js ${TESTED_LINES.join(', ')}.`);
}

// Findings about the addon and, when it can be loaded, the engine that the system's loader found.
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
  // After address, permissions, offset, device and inode; the name may have spaces.
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

const names = (count) => (count === 1 ? '1 name' : `${count} names`);

const listed = (items, title) => (items.length === 0 ? [] : [title(names(items.length)), ...items]);

function checkLeftovers(directory = SHARED_MEMORY) {
  try {
    const files = leftovers(directory);
    if (files.length === 0) return NOTHING_LEFT;
    return warning(
      [`${names(files.length)} left over from processes that were killed:`, ...files].join('\n'),
      'Remove them: npx tessel-wrapper doctor --clean',
    );
  } catch ({ message }) {
    return warning(`cannot tell whether segments are left over: ${message}`);
  }
}

function clean(directory = SHARED_MEMORY) {
  try {
    const { removed, refused } = removeLeftovers(directory);
    const lines = [
      ...listed(refused, (count) => `cannot remove ${count}:`),
      ...listed(removed, (count) => `removed ${count} that no process used:`),
    ];
    if (lines.length === 0) return NOTHING_LEFT;
    return (refused.length > 0 ? bad : good)(lines.join('\n'));
  } catch ({ message }) {
    return bad(`cannot remove what is left over: ${message}`);
  }
}

// All findings: { rank, text, advice } with what to do about it, or what else to know. What killed
// processes have left is removed if `cleaning`.
function examine({ cleaning = false, directory = SHARED_MEMORY } = {}) {
  const { node: version } = process.versions;
  const findings = [
    checkNode({ version, platform: process.platform, arch: process.arch }),
    ...checkAddon(),
    checkRights(directory),
  ];
  // Without the rights the rest follows; but who has asked for something is told what became of it.
  if (findings.at(-1).rank === 'bad') return cleaning ? [...findings, clean(directory)] : findings;
  const leftoverFinding = cleaning ? clean(directory) : checkLeftovers(directory);
  return [...findings, checkSpace(fs.statfsSync(directory), directory), leftoverFinding];
}

// The lines that the command prints about `findings`, and its exit code.
function report(findings) {
  const lines = findings.flatMap(({ rank, text, advice }) => [
    ...`${LABELS[rank]}  ${text}`
      .split('\n')
      .map((line, index) => (index > 0 ? INDENT : '') + line),
    ...(advice ? [`${INDENT}-> ${advice}`] : []),
  ]);
  return { lines, exitCode: findings.some(({ rank }) => rank === 'bad') ? 1 : 0 };
}

module.exports = { checkLeftovers, checkNode, checkRights, checkSpace, clean, examine, report };
