// The environment variables with which tests run under the sanitizers.

import { execFileSync } from 'node:child_process';
import path from 'node:path';

// The same for all sanitizers, and different from a test's own exit code.
const EXIT_CODE = 66;

const RUNTIMES = { asan: 'libasan.so', tsan: 'libtsan.so' };

export const isSanitizer = (preset) => preset in RUNTIMES;

function options(values) {
  return Object.entries(values)
    .map(([name, value]) => `${name}="${value}"`)
    .join(':');
}

// Every report goes to a file in the folder `reports`, named after the sanitizer and the process,
// so that a report of a process whose output and exit code are ignored is found as well. Paths are
// relative to the repository's root.
export function sanitizerEnvironment(preset, reports) {
  if (!isSanitizer(preset)) return { forEveryProcess: {}, forNode: {} };
  const common = { exitcode: EXIT_CODE };
  const suppressions = (name) => path.resolve('test/sanitizers', name);
  return {
    forEveryProcess: {
      ASAN_OPTIONS: options({ ...common, log_path: path.join(reports, 'asan') }),
      UBSAN_OPTIONS: options({
        ...common,
        log_path: path.join(reports, 'ubsan'),
        print_stacktrace: 1,
      }),
      LSAN_OPTIONS: options({ suppressions: suppressions('lsan.supp'), print_suppressions: 0 }),
      TSAN_OPTIONS: options({
        ...common,
        log_path: path.join(reports, 'tsan'),
        suppressions: suppressions('tsan.supp'),
        second_deadlock_stack: 1,
        // By default every process sleeps for a second at its end.
        atexit_sleep_ms: 100,
      }),
    },
    // The ordinary node is not linked to the runtime, which must be the first library of the
    // process.
    forNode: {
      LD_PRELOAD: execFileSync('g++', [`-print-file-name=${RUNTIMES[preset]}`], {
        encoding: 'utf8',
      }).trim(),
    },
  };
}
