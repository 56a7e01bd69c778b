#!/usr/bin/env node
'use strict';

// npx tessel-wrapper doctor            checks that the package can work, and advises about problems
// npx tessel-wrapper doctor --clean    does so, and removes the leftovers of killed processes in
//                                      /dev/shm
// npx tessel-wrapper build             builds the addon and the embedded engine

const { spawnSync } = require('node:child_process');
const path = require('node:path');

const { examine, report } = require('../js/doctor.js');
const { buildDirectory } = require('../js/load_addon.js');
const { examineRealMeetings } = require('../js/real_meetings.js');

const USAGE = 'usage: tessel-wrapper doctor [--clean] | build';

function doctor(option) {
  const { lines, exitCode } = report([
    ...examine({ cleaning: option === '--clean' }),
    ...examineRealMeetings(buildDirectory()),
  ]);
  for (const line of lines) console.log(line);
  return exitCode;
}

function build() {
  const home = path.join(__dirname, '..');
  const script = path.join(home, 'scripts', 'setup.sh');
  const { status, signal, error } = spawnSync(script, ['release', '--for', 'install'], {
    stdio: 'inherit',
  });
  if (error) throw error;
  if (signal) console.error(`The build was ended by ${signal}.`);
  if (status !== 0) return status ?? 1;
  for (const name of ['tesselWrapper.node', 'libtesselclient.so']) {
    console.log(`Built ${path.join(home, 'build', 'release', name)}`);
  }
  console.log('"npx tessel-wrapper doctor" checks it.');
  return 0;
}

function help() {
  console.log(USAGE);
  return 0;
}

const commands = { doctor, build, '--help': help };
const options = { doctor: ['--clean'] };
const [name = '', option, ...others] = process.argv.slice(2);
const isKnown = option === undefined || options[name]?.includes(option);
if (Object.hasOwn(commands, name) && isKnown && others.length === 0) {
  process.exitCode = commands[name](option);
} else {
  console.error(USAGE);
  process.exitCode = 2;
}
