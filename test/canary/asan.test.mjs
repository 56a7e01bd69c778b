import { test } from 'node:test';
import { expectReport } from '../support/expect_report.mjs';

test('the address sanitizer reports a write to freed memory', () => {
  expectReport('heapUseAfterFree', /AddressSanitizer: heap-use-after-free/);
});

test('the undefined-behaviour sanitizer reports an integer overflow', () => {
  expectReport('undefinedOverflow', /runtime error: signed integer overflow/);
});

test('the leak sanitizer reports memory that is still allocated when a process ends by itself', () => {
  expectReport('leak', /LeakSanitizer: detected memory leaks/);
});

test('the address sanitizer sees a thread of GStreamer that writes to freed memory', () => {
  expectReport('heapUseAfterFree', /AddressSanitizer: heap-use-after-free/, {
    addon: 'webrtc_canary',
  });
});
