// The check of the layers: this repository, and small trees with a seeded include.

import assert from 'node:assert';
import { spawnSync } from 'node:child_process';
import { mkdirSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';

const SCRIPT = fileURLToPath(new URL('../../../scripts/check_layers.mjs', import.meta.url));

function check(...args) {
  const { status, stderr } = spawnSync(process.execPath, [SCRIPT, ...args], { encoding: 'utf8' });
  return { status, complaints: stderr.split('\n').filter(Boolean) };
}

// Checks a tree of `files`, whose sources are given by path.
function checkTree(t, files) {
  const root = temporaryDirectory(t);
  for (const [file, source] of Object.entries(files)) {
    mkdirSync(path.join(root, path.dirname(file)), { recursive: true });
    writeFileSync(path.join(root, file), source);
  }
  return check(root);
}

test('no native source file of this repository includes upwards', () => {
  assert.deepStrictEqual(check(), { status: 0, complaints: [] });
});

test('what a folder may include is accepted', (t) => {
  const outcome = checkTree(t, {
    'base/mutex.h': '#include <mutex>\n',
    'engine/include/tesselclient/types.h': '#include <utility>\n',
    'engine/support/loop.h': '#include "base/mutex.h"\n#include "tesselclient/types.h"\n',
    'engine/embedded/meeting/meeting.cc': '#include "engine/support/loop.h"\n#include <napi.h>\n',
    'addon/napi/values.h': '#include <napi.h>\n',
    'addon/wrapper/wrapper.h': '#include "addon/napi/values.h"\n#include "base/mutex.h"\n',
    'addon/wrapper/wrapper.cc': '#include "addon/wrapper/wrapper.h"\n',
    'addon/module.cc': '#include "addon/wrapper/wrapper.h"\n',
  });
  assert.deepStrictEqual(outcome, { status: 0, complaints: [] });
});

for (const [file, include, header] of [
  ['base/mutex.h', '"engine/support/loop.h"', 'engine/support/loop.h'],
  ['base/mutex.h', '"tesselclient/types.h"', 'engine/include/tesselclient/types.h'],
  ['base/mutex.h', '"test/support/fake.h"', 'test/support/fake.h'],
  ['engine/include/tesselclient/types.h', '"base/mutex.h"', 'base/mutex.h'],
  ['engine/support/loop.h', '"engine/embedded/meeting.h"', 'engine/embedded/meeting.h'],
  ['engine/support/loop.h', '"../embedded/meeting.h"', 'engine/embedded/meeting.h'],
  ['engine/embedded/meeting.h', '"addon/napi/values.h"', 'addon/napi/values.h'],
  ['engine/webrtc/call.h', '"engine/embedded/meeting.h"', 'engine/embedded/meeting.h'],
  ['addon/napi/values.h', '"addon/events/handler.h"', 'addon/events/handler.h'],
  ['addon/napi/values.h', '<addon/events/handler.h>', 'addon/events/handler.h'],
  ['addon/events/handler.h', '"addon/wrapper/wrapper.h"', 'addon/wrapper/wrapper.h'],
  ['addon/wrapper/wrapper.h', '"engine/embedded/meeting.h"', 'engine/embedded/meeting.h'],
  ['addon/wrapper/wrapper.h', '"engine/support/loop.h"', 'engine/support/loop.h'],
]) {
  test(`${file} must not include ${include}`, (t) => {
    const outcome = checkTree(t, {
      [header]: '',
      [file]: `#pragma once\n  # include ${include}\n`,
    });
    const complaints = [`${file}: must not include ${header}`];
    assert.deepStrictEqual(outcome, { status: 1, complaints });
  });
}

test('a folder that is missing in the table is refused', (t) => {
  const outcome = checkTree(t, { 'addon/other/file.cc': '' });
  assert.deepStrictEqual(outcome, {
    status: 1,
    complaints: ['addon/other/file.cc: its folder is not in the table of check_layers.mjs'],
  });
});

test('a tree without native source files is refused', (t) => {
  assert.strictEqual(checkTree(t, { 'README.md': '' }).status, 1);
});
