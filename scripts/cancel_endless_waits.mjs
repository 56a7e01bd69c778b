// Loaded into the node process of each test file before the file.
//
// A test that waits when nothing is left that could wake it fails. Node.js 20 and 22 cancel it when
// the event loop is empty, which 'beforeExit' tells. Newer lines wait for it without end, unless
// their listener of 'beforeExit' is called with `true`, which the older ones ignore.

process.once('beforeExit', () => process.emit('beforeExit', true));
