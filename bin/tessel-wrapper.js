#!/usr/bin/env node
'use strict';

// npx tessel-wrapper doctor    looks for what keeps the package from working, and says what to do
// npx tessel-wrapper build     builds the addon and the embedded engine

const { spawnSync } = require('node:child_process');
const path = require('node:path');

const { examine } = require('../js/doctor.js');

function doctor() {
  const findings = examine();
  for (const { isGood, text, advice } of findings) {
    console.log(`${isGood ? 'ok     ' : 'problem'}  ${text.replaceAll('\n', '\n         ')}`);
    if (advice) console.log(`         -> ${advice}`);
  }
  return findings.every(({ isGood }) => isGood) ? 0 : 1;
}

function build() {
  const script = path.join(__dirname, '..', 'scripts', 'setup.sh');
  const { status, error } = spawnSync(script, ['release', '--for', 'install'], {
    stdio: 'inherit',
  });
  if (error) throw error;
  return status ?? 1;
}

const commands = { doctor, build };
const [name, ...others] = process.argv.slice(2);
if (Object.hasOwn(commands, name ?? '') && others.length === 0) {
  process.exitCode = commands[name]();
} else {
  console.error('usage: tessel-wrapper doctor | build');
  process.exitCode = 2;
}
