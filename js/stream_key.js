'use strict';

const { inspect } = require('node:util');

const TYPES = ['local', 'remote', 'content'];

// The name of a stream, for counters and errors, and as a key of maps.
const nameOf = ({ type, streamIndex }) => `${type}-${streamIndex}`;

// The key of `stream` alone, which the application may change. The engine tells of streams with more
// properties than a key has: those are no fault.
function requireStream(stream) {
  if (typeof stream !== 'object' || stream === null) {
    const expected = "{ type: 'remote', streamIndex: 0 }";
    throw new TypeError(`Wrong stream ${inspect(stream)}, expected an object: ${expected}`);
  }
  const { type, streamIndex } = stream;
  if (!TYPES.includes(type)) {
    throw new TypeError(
      `Wrong type ${inspect(type)} of a stream, expected one of ${TYPES.join(', ')}`,
    );
  }
  if (streamIndex !== (streamIndex | 0)) {
    throw new TypeError(
      `Wrong streamIndex ${inspect(streamIndex)} of a stream, expected a whole number of 32 bits`,
    );
  }
  return { type, streamIndex };
}

module.exports = { nameOf, requireStream };
