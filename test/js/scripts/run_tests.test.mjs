// The test runner itself, in a small temporary tree: a copy of the scripts, a replaced `ctest`, and
// generated test files.

import assert from 'node:assert';
import { spawnSync } from 'node:child_process';
import { cpSync, mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { test } from 'node:test';

const PASSING_FILE = "import { test } from 'node:test'; test('a', () => {}); test('b', () => {});";

const CASES = [
  {
    name: 'adds up the passed tests of both kinds',
    closing: '3 passed, 0 failed',
  },
  {
    name: 'counts each failed test of both kinds',
    native: ['run', 'fail'],
    file: "import { test } from 'node:test'; test('a', () => {}); test('b', () => { throw 1; });",
    closing: '2 passed, 2 failed',
  },
  {
    name: 'shows at the end what each failed native test wrote',
    native: ['run', 'fail'],
    closing: '3 passed, 1 failed',
    shown: 'name="1" status="fail">\nit says fail\n',
    hidden: 'it says run',
  },
  {
    name: 'shows at the end why each failed test of a file did',
    file: `import { test } from 'node:test';
      test('a', () => {}); test('b', () => { throw new Error('no ' + 'reason'); });`,
    closing: '2 passed, 1 failed',
    shown: '\ntest/js/folder/some.test.mjs: 1 failed or skipped\nb: Error: no reason\n',
  },
  {
    name: 'counts the tests of a suite and not the suite',
    file: "import { describe, test } from 'node:test'; describe('a', () => test('b', () => {}));",
    closing: '2 passed, 0 failed',
  },
  {
    name: 'counts a failed test inside others once',
    file: `import { describe, test } from 'node:test';
      describe('a', () => test('b', (t) => t.test('c', () => { throw 1; })));`,
    closing: '1 passed, 1 failed',
  },
  {
    name: 'counts skipped and disabled native tests as failed',
    native: ['run', 'notrun', 'disabled'],
    closing: '3 passed, 2 failed',
  },
  {
    name: 'counts skipped tests and those still to do as failed',
    file: `import { test } from 'node:test';
      test('a', { skip: 'why' }, () => {}); test.todo('b'); test('c', (t) => t.skip());`,
    closing: '1 passed, 3 failed',
  },
  {
    name: 'counts a skipped suite as failed',
    file: "import { describe, test } from 'node:test'; describe.skip('a', () => test('b', () => {}));",
    closing: '1 passed, 1 failed',
  },
  {
    name: 'fails when no native test was run',
    native: [],
    closing: '2 passed, 1 failed',
  },
  {
    name: 'fails when CTest fails although its tests passed',
    ctestStatus: 8,
    closing: '3 passed, 1 failed',
  },
  {
    name: 'fails when CTest leaves no results',
    native: null,
    ctestStatus: 1,
    closing: '2 passed, 1 failed',
  },
  {
    name: 'fails when there is no test file',
    file: null,
    closing: '1 passed, 1 failed',
  },
  {
    name: 'fails when a test file holds no test',
    file: '',
    closing: '1 passed, 1 failed',
  },
  {
    name: 'fails when a test file holds an empty suite',
    file: "import { describe } from 'node:test'; describe('a', () => {});",
    closing: '1 passed, 1 failed',
  },
  {
    name: 'fails when a test file exits with 0 before its tests have reported',
    file: `${PASSING_FILE} process.exit(0);`,
    closing: '1 passed, 1 failed',
  },
  {
    name: 'fails when a test file ends at once, without its exit handlers',
    file: "import { test } from 'node:test'; test('a', () => process.reallyExit(0));",
    closing: '1 passed, 1 failed',
  },
  {
    name: 'fails when a test file is killed',
    file: "import { test } from 'node:test'; test('a', () => process.kill(process.pid, 'SIGKILL'));",
    closing: '1 passed, 1 failed',
  },
  {
    name: 'fails when a test file cannot be loaded',
    file: `${PASSING_FILE} throw new Error('at the top level');`,
    closing: '1 passed, 1 failed',
  },
  {
    name: 'fails when a test waits for an event that cannot occur',
    file: "import { test } from 'node:test'; test('a', () => new Promise(() => {}));",
    closing: '1 passed, 1 failed',
  },
  {
    name: 'fails when an error occurs after its test has ended',
    file: `import { test } from 'node:test';
      test('a', () => { setImmediate(() => { throw new Error('late'); }); });`,
    closing: '2 passed, 1 failed',
  },
  {
    name: 'fails when a sanitizer has left a report',
    file: `${PASSING_FILE}
      import { writeFileSync } from 'node:fs';
      writeFileSync(process.env.TESSEL_BUILD + '/test_results/sanitizer_reports/asan.1', 'a bug');`,
    closing: '3 passed, 1 failed',
    shown: 'a bug',
  },
  {
    name: 'runs the tests in a browser',
    directory: 'browser',
    closing: '3 passed, 0 failed',
  },
  {
    name: 'runs no tests in a browser with a sanitizer',
    preset: 'tsan',
    directory: 'browser',
    closing: '1 passed, 1 failed',
    shown: 'test files: none was found',
  },
  {
    name: 'runs the tests in a browser with a sanitizer on request',
    preset: 'tsan',
    directory: 'browser',
    arguments: ['--with-browser'],
    closing: '3 passed, 0 failed',
  },
  {
    name: 'needs no native test when it was asked for something else',
    arguments: ['--only', 'js/folder'],
    native: [],
    closing: '2 passed, 0 failed',
  },
  {
    name: 'leaves out the test files that it is not to run',
    arguments: ['--without', 'elsewhere', '--without', 'js/folder'],
    closing: '1 passed, 1 failed',
    shown: 'test files: none was found',
  },
  {
    name: 'leaves out the native tests where only JavaScript is asked for',
    arguments: ['--javascript'],
    ctestStatus: 1,
    closing: '2 passed, 0 failed',
  },
  {
    name: 'fails when nothing has the name that was asked for',
    arguments: ['--only', 'elsewhere'],
    native: [],
    closing: '0 passed, 1 failed',
  },
];

function runInSmallTree({
  preset = 'release',
  directory = 'folder',
  native = ['run'],
  ctestStatus = 0,
  file = PASSING_FILE,
  ...rest
}) {
  const tree = mkdtempSync(path.join(tmpdir(), 'tessel_run_tests_'));
  const write = (name, text, mode) => {
    mkdirSync(path.dirname(path.join(tree, name)), { recursive: true });
    writeFileSync(path.join(tree, name), text, { mode });
  };
  try {
    for (const folder of ['scripts', 'test/sanitizers'])
      cpSync(folder, path.join(tree, folder), { recursive: true });
    if (file !== null) write(`test/js/${directory}/some.test.mjs`, file);
    if (native !== null) {
      const cases = native.map(
        (status, i) => `<testcase name="${i}" status="${status}">\nit says ${status}\n</testcase>`,
      );
      write('native.xml', cases.join('\n'));
    }
    // The file for the results follows `--output-junit`.
    write(
      'bin/ctest',
      `#!/bin/sh
      while [ "$1" != --output-junit ]; do shift; done
      [ ! -e native.xml ] || cp native.xml "$2"
      exit ${ctestStatus}`,
      0o755,
    );
    return spawnSync(
      process.execPath,
      ['scripts/run_tests.mjs', preset, ...(rest.arguments ?? [])],
      {
        cwd: tree,
        env: {
          ...process.env,
          PATH: `${tree}/bin:${process.env.PATH}`,
          // A shell crashes under the thread sanitizer's runtime.
          LD_PRELOAD: '',
          // Set where `node --test` runs this file, it would change how the inner files report.
          NODE_TEST_CONTEXT: undefined,
        },
        encoding: 'utf8',
      },
    );
  } finally {
    rmSync(tree, { recursive: true });
  }
}

for (const [given, said] of [
  [[], 'one PRESET is needed'],
  [['release', 'asan'], 'one PRESET is needed'],
  [['release', '--other'], "Unknown option '--other'"],
  [['release', '--only'], "Option '--only <value>' argument missing"],
  [['release', '--only', ''], '--only needs a TEXT'],
  [['release', '--without', 'a', '--without', ''], '--without needs a TEXT'],
]) {
  test(`the test runner refuses ${given.length > 0 ? given.join(' ') : 'to run nothing'}`, () => {
    const { stderr, status } = spawnSync(process.execPath, ['scripts/run_tests.mjs', ...given], {
      encoding: 'utf8',
    });
    assert.strictEqual(status, 2);
    assert.ok(stderr.startsWith(said), stderr);
    assert.ok(stderr.includes('\nusage: node scripts/run_tests.mjs PRESET'), stderr);
  });
}

for (const { name, closing, shown = '', hidden, ...tree } of CASES) {
  test(`the test runner ${name}`, () => {
    const { stdout, status } = runInSmallTree(tree);
    assert.strictEqual(stdout.trimEnd().split('\n').at(-1), closing);
    assert.strictEqual(status, closing.endsWith(' 0 failed') ? 0 : 1);
    assert.ok(stdout.includes(shown), stdout);
    if (hidden) assert.ok(!stdout.includes(hidden), stdout);
  });
}
