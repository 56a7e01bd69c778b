// The application without a page.

import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { test } from 'node:test';
import { promisify } from 'node:util';

import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { PROGRAM } from '../../support/meeting_app/meeting_app.mjs';

test('--headless prints a summary, with its own options', async (t) => {
  const { stdout } = await promisify(execFile)(process.execPath, [
    PROGRAM,
    '--headless',
    '--seconds',
    '0.5',
    '--output',
    temporaryDirectory(t),
  ]);
  assert.match(stdout, /^event callConnectionStatus {"connected":true}$/m);
  assert.match(stdout, /^picture .*remote-3\.png$/m);
  assert.doesNotMatch(stdout, /The meeting is at/);
});
