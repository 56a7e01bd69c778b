// Loaded into the node process of each test file before the file.
//
// Makes a test fail that still waits when the event loop is empty. Node.js 20 and 22 cancel such a
// test on 'beforeExit'. Newer lines wait for ever, unless their listener of 'beforeExit' is called
// with `true`, which the older ones ignore.

process.once('beforeExit', () => process.emit('beforeExit', true));
