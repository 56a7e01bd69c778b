// Loaded into the node process of each test file before the file.
//
// The leak check at a process's end is reliable only when Node.js has destroyed its environment
// before. It does so when a script ends by itself, as the test files do; it does not in
// `process.exit()`, which then shows hundreds of allocations of node's own. So the test files are
// checked, and the processes that they start are not, unless a test requests it by starting one
// with `detect_leaks=1` appended to `ASAN_OPTIONS`.

if (process.env.ASAN_OPTIONS) process.env.ASAN_OPTIONS += ':detect_leaks=0';

// Such a process does not join its threads either. (A later option overrides an earlier one.)
if (process.env.TSAN_OPTIONS) process.env.TSAN_OPTIONS += ':report_thread_leaks=0';
