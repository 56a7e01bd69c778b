'use strict';

// The name of a stream: in counters and errors, and as the key of what is kept for it.
const nameOf = ({ type, streamIndex }) => `${type}-${streamIndex}`;

module.exports = { nameOf };
