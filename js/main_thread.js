'use strict';

const { isMainThread } = require('node:worker_threads');

// The addon refuses it, too, but only after steps that also fail in a worker, and without advice.
const ADVICE =
  'in a test runner, run the tests in processes instead of threads (vitest: --pool forks); ' +
  'elsewhere, start a process with child_process.fork() instead of the worker';

function requireMainThread(what) {
  if (!isMainThread) throw new Error(`${what} is only possible on the main thread: ${ADVICE}`);
}

module.exports = { requireMainThread };
