'use strict';

// What all copies of the package in one process share, those of other versions among them. Test
// runners give each file a global object and a `process` of its own, and share only node's modules: it
// is kept on one of these.

const timers = require('node:timers');

// The record called `name`, which `make` makes for the copy that asks first. Its form goes with the
// number that ends the name.
function processRecord(name, make) {
  return (timers[Symbol.for(`tessel-wrapper.${name}`)] ??= make());
}

module.exports = { processRecord };
