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

const good = (text, advice) => ({ rank: 'good', text, advice });
const bad = (text, advice) => ({ rank: 'bad', text, advice });

// What the program found, or a finding that says why there is nothing.
function ask(program) {
  const { status, signal, error, stdout, stderr } = spawnSync(program, {
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

function checkPackage(name, elements) {
  const missing = elements.filter(({ isThere }) => !isThere);
  const named = (some) => some.map((element) => element.name).join(', ');
  return missing.length === 0
    ? good(`real meetings: ${name} has ${named(elements)}`)
    : bad(`real meetings: ${name} is missing, with ${named(missing)}`, `Install it: ${name}`);
}

function checkDevices(kind, devices) {
  const names = devices.filter((device) => device.kind === kind).map(({ name }) => name);
  return good(`real meetings: ${kind}s: ${names.join(', ') || 'none'}`);
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
  const packages = [...new Set(found.elements.map((element) => element.package))];
  return [
    good(`real meetings: engine ${engine}`),
    ...packages.map((name) =>
      checkPackage(
        name,
        found.elements.filter((element) => element.package === name),
      ),
    ),
    ...['camera', 'microphone', 'speaker'].map((kind) => checkDevices(kind, found.devices)),
  ];
}

module.exports = { examineRealMeetings };
