'use strict';

// The options objects of operations. Unknown names and invalid values are refused, not ignored.

const { inspect } = require('node:util');

// The longest that a timer can wait.
const MAX_TIMEOUT_MS = 2 ** 31 - 1;

const CHECKS = {
  rate(rate) {
    if (typeof rate !== 'number') throw new TypeError(`rate ${inspect(rate)}: not a number`);
    if (!(rate > 0)) throw new RangeError(`rate ${rate}: not a positive number`);
  },
  signal(signal) {
    if (signal instanceof AbortSignal) return;
    throw new TypeError(`Wrong signal ${inspect(signal, { depth: 0 })}, expected an AbortSignal`);
  },
  timeout(timeout) {
    if (typeof timeout === 'number' && timeout >= 0 && timeout <= MAX_TIMEOUT_MS) return;
    throw new TypeError(
      `Wrong timeout ${inspect(timeout)}, expected milliseconds from 0 to ${MAX_TIMEOUT_MS}`,
    );
  },
  where(where) {
    if (typeof where === 'function') return;
    throw new TypeError(`Wrong where ${inspect(where, { depth: 0 })}, expected a function`);
  },
};

// An array, a signal or a controller has none of the names, and would count as empty options.
function isRecord(options) {
  if (typeof options !== 'object' || options === null || Array.isArray(options)) return false;
  return !('aborted' in options || 'abort' in options);
}

// The checked `options` of `operation`, which accepts the `names`. Undefined options are omitted.
function checkOptions(options = {}, names, operation) {
  if (!isRecord(options)) {
    const given = inspect(options, { depth: 0 });
    throw new TypeError(
      `Wrong options ${given} of ${operation}, expected an object: { ${names.join(', ')} }`,
    );
  }
  for (const [name, value] of Object.entries(options)) {
    if (value === undefined) continue;
    if (!names.includes(name)) {
      throw new TypeError(
        `Unknown option ${name} of ${operation}, expected one of ${names.join(', ')}`,
      );
    }
    CHECKS[name](value);
  }
  return options;
}

module.exports = { OPTION_NAMES: Object.keys(CHECKS), checkOptions };
