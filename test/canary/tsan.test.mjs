import { test } from 'node:test';
import { expectReport } from '../support/expect_report.mjs';

test('the thread sanitizer reports two threads that write without a lock', () => {
  expectReport('dataRace', /ThreadSanitizer: data race/);
});

test('the thread sanitizer sees two threads of GStreamer that write without a lock', () => {
  expectReport('dataRace', /ThreadSanitizer: data race/, { addon: 'webrtc_canary' });
});
