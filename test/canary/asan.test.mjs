import { test } from 'node:test';
import { expectReport } from '../support/expect_report.mjs';

test('the address sanitizer sees a write to freed memory', () => {
  expectReport('heapUseAfterFree', /AddressSanitizer: heap-use-after-free/);
});

test('the undefined-behaviour sanitizer sees an integer that overflows', () => {
  expectReport('undefinedOverflow', /runtime error: signed integer overflow/);
});

test('the leak sanitizer sees what a process that ends by itself left allocated', () => {
  expectReport('leak', /LeakSanitizer: detected memory leaks/);
});

test('the address sanitizer sees a thread of GStreamer that writes to freed memory', () => {
  expectReport('heapUseAfterFree', /AddressSanitizer: heap-use-after-free/, {
    addon: 'webrtc_canary',
  });
});
