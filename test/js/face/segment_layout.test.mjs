// What the package knows of the segments is what the addon is built with.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import path from 'node:path';
import { test } from 'node:test';

import { build } from '../../support/build.mjs';
import { requireFace } from '../../support/face.mjs';

const { SEGMENT_LAYOUT } = requireFace('./segment_layout.js');

test("the layout of the segments equals that in the addon's headers", () => {
  const program = path.join(build, 'test/native/sharedmem/print_segment_layout');
  const env = { ...process.env, LD_PRELOAD: '' }; // its own sanitizer is linked into it
  const { status, stdout, error } = spawnSync(program, { encoding: 'utf8', env });
  if (error) throw error;
  assert.equal(status, 0);
  assert.deepEqual(SEGMENT_LAYOUT, JSON.parse(stdout));
});
