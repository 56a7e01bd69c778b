'use strict';

// What the doctor says about the engine for real meetings: whether it was built, and what it finds on
// this machine.

const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');

const { MEDIA_PACKAGES } = require('./load_addon.js');

// Beside that engine; asks GStreamer.
const PROGRAM = 'examine_webrtc_engine';
// Far above what it takes, also when GStreamer lists its plugins for the first time.
const TIME_LIMIT_MS = 60_000;
// They say where GStreamer looks for plugins.
const PLUGIN_PATHS = [
  'GST_PLUGIN_SYSTEM_PATH_1_0',
  'GST_PLUGIN_SYSTEM_PATH',
  'GST_PLUGIN_PATH_1_0',
  'GST_PLUGIN_PATH',
];

const good = (text, advice) => ({ rank: 'good', text, advice });
const bad = (text, advice) => ({ rank: 'bad', text, advice });

// What the program found, or a finding that says why there is nothing.
function ask(program, env = process.env) {
  const { status, signal, error, stdout, stderr } = spawnSync(program, {
    env,
    encoding: 'utf8',
    timeout: TIME_LIMIT_MS,
  });
  if (status === 0) return { found: JSON.parse(stdout) };
  const reason = error?.message ?? (stderr.trim() || `it ended with ${signal ?? status}`);
  return {
    failure: bad(
      `real meetings: GStreamer cannot be examined: ${reason}`,
      `Install what it needs: ${MEDIA_PACKAGES}`,
    ),
  };
}

const namesOf = (elements) => elements.map(({ name }) => name);
const missingOf = (elements) => elements.filter(({ isThere }) => !isThere);

// The variables in which somebody has named directories of plugins, if GStreamer finds elements only
// without them: { paths, elements }, the elements by their names.
function hiddenByPaths(program, { elements }) {
  const paths = PLUGIN_PATHS.filter((name) => process.env[name] !== undefined);
  if (paths.length === 0 || missingOf(elements).length === 0) return { paths, elements: [] };
  const env = { ...process.env };
  for (const name of paths) delete env[name];
  const { found } = ask(program, env);
  const stillMissing = new Set(found ? namesOf(missingOf(found.elements)) : namesOf(elements));
  return {
    paths,
    elements: namesOf(missingOf(elements)).filter((name) => !stillMissing.has(name)),
  };
}

function checkPackage(name, elements, hidden) {
  const missing = namesOf(missingOf(elements));
  if (missing.length === 0) {
    return good(`real meetings: ${name} has ${namesOf(elements).join(', ')}`);
  }
  if (missing.every((element) => hidden.elements.includes(element))) {
    const settings = hidden.paths.map((path) => `${path}="${process.env[path]}"`);
    return bad(
      `real meetings: GStreamer does not find ${missing.join(', ')} of ${name}`,
      `The environment keeps it from that: correct or unset ${settings.join(' ')}`,
    );
  }
  return bad(
    `real meetings: ${name} is missing, with ${missing.join(', ')}`,
    `Install it: ${name}`,
  );
}

function checkDevices(kind, devices) {
  const names = devices.filter((device) => device.kind === kind).map(({ name }) => name);
  return good(`real meetings: ${kind}s: ${names.join(', ') || 'none'}`);
}

// Whether there is a camera that this engine can use; false without the engine.
function hasCamera(directory) {
  const { found } = ask(path.join(directory, 'webrtc', PROGRAM));
  return found?.devices.some(({ kind }) => kind === 'camera') ?? false;
}

// All findings, as the doctor's. `directory` is that of a build.
function examineRealMeetings(directory) {
  const engine = path.join(directory, 'webrtc', 'libtesselclient.so');
  const program = path.join(directory, 'webrtc', PROGRAM);
  if (!fs.existsSync(engine) || !fs.existsSync(program)) {
    return [
      good(
        `real meetings: no engine in ${path.dirname(engine)}`,
        'npm run build:webrtc builds it, for those who need it.',
      ),
    ];
  }
  const { found, failure } = ask(program);
  if (failure) return [good(`real meetings: engine ${engine}`), failure];
  const hidden = hiddenByPaths(program, found);
  const packages = [...new Set(found.elements.map((element) => element.package))];
  return [
    good(`real meetings: engine ${engine}`),
    ...packages.map((name) =>
      checkPackage(
        name,
        found.elements.filter((element) => element.package === name),
        hidden,
      ),
    ),
    ...['camera', 'microphone', 'speaker'].map((kind) => checkDevices(kind, found.devices)),
  ];
}

module.exports = { examineRealMeetings, hasCamera };
