// node scripts/run_tests.mjs PRESET [--only TEXT] [--without TEXT]... [--javascript]
// [--with-browser]
//
// Runs the native tests of build/PRESET through CTest, then every test/js/**/*.test.mjs, and every
// test/**/PRESET.test.mjs, in a node process of its own, and ends with one line 'N passed, N
// failed' for both. These are failures too: a runner that crashes or finds no tests, a file that
// ends before its tests did, a skipped test, and a sanitizer's report in any process, even one
// whose result the tests ignore.
//
// --only TEXT keeps the native tests and the test files whose name contains TEXT, --without TEXT
// leaves out test files whose name does, and --javascript the native tests.
//
// With a sanitizer the files below test/js/browser/ are left out unless --with-browser is given: it
// checks the Node.js processes, which other files test without a page, and makes a browser that
// draws on the processor too slow on a small machine. Of real meetings only those files run that are
// quick enough under a sanitizer, and whose servers are there: what only the others run is checked by
// none, which is cameras, microphones, sound clips that are played, and TLS to a relay.

import { spawn, spawnSync } from 'node:child_process';
import {
  closeSync,
  existsSync,
  mkdirSync,
  openSync,
  readFileSync,
  readdirSync,
  rmSync,
} from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';
import { isSanitizer, sanitizerEnvironment } from './sanitizer_environment.mjs';

// Far longer than any test takes, even under a sanitizer: it ends a process that hangs.
const TIME_LIMIT_SECONDS = 600;

const root = fileURLToPath(new URL('..', import.meta.url));
process.chdir(root);

function readCommandLine() {
  try {
    const { values, positionals } = parseArgs({
      options: {
        only: { type: 'string' },
        without: { type: 'string', multiple: true, default: [] },
        javascript: { type: 'boolean', default: false },
        'with-browser': { type: 'boolean', default: false },
      },
      allowPositionals: true,
    });
    if (positionals.length !== 1) throw new Error('one PRESET is needed');
    for (const name of ['only', 'without']) {
      if ([values[name]].flat().includes('')) throw new Error(`--${name} needs a TEXT`);
    }
    const [preset] = positionals;
    return {
      preset,
      only: values.only ?? '',
      without: values.without,
      withNative: !values.javascript,
      withBrowser: values['with-browser'] || !isSanitizer(preset),
    };
  } catch ({ message }) {
    console.error(
      `${message}\nusage: node scripts/run_tests.mjs PRESET [--only TEXT] [--without TEXT]... ` +
        '[--javascript] [--with-browser]',
    );
    process.exit(2);
  }
}

const { preset, only, without, withNative, withBrowser } = readCommandLine();
// On two cores. Many tests wait for a while; under a sanitizer fewer of them do.
const PARALLEL = isSanitizer(preset) ? 2 : 3;
const build = path.resolve('build', preset);
const results = path.join(build, 'test_results');
const reports = path.join(results, 'sanitizer_reports');
rmSync(results, { recursive: true, force: true });
mkdirSync(reports, { recursive: true });

const total = { passed: 0, failed: 0 };
// One text for each failure, shown again at the end.
const complaints = [];

function addCounts(name, { passed, failed, failures }) {
  total.passed += passed;
  total.failed += failed;
  if (failed > 0) complaints.push(`${name}: ${failed} failed or skipped`, ...failures);
}

function addFailure(name, complaint) {
  total.failed += 1;
  complaints.push(`${name}: ${complaint}`);
}

function howItEnded(status, signal) {
  return signal ? `was ended by ${signal}` : `ended with exit code ${status}`;
}

function runNativeTests(environment) {
  const file = path.join(results, 'native.xml');
  const { status, signal, error } = spawnSync(
    'ctest',
    [
      ...['--preset', preset, '--output-junit', file],
      ...['--parallel', `${PARALLEL}`, '--timeout', `${TIME_LIMIT_SECONDS}`],
      ...(only ? ['--tests-regex', only.replace(/\W/g, '\\$&')] : []),
    ],
    { stdio: 'inherit', env: environment },
  );
  if (error) throw error;
  const report = existsSync(file) ? readFileSync(file, 'utf8') : '';
  const cases = report.split('<testcase ').slice(1);
  const failures = cases.filter((testCase) => !/^[^>]* status="run"/.test(testCase));
  const failed = failures.length;
  addCounts('native tests', { passed: cases.length - failed, failed, failures });
  if (failed === 0 && status !== 0)
    addFailure('native tests', `ctest ${howItEnded(status, signal)}`);
  else if (cases.length === 0 && !only) addFailure('native tests', 'none was run');
}

// The engine for real meetings is built with these presets, and its tests need the server.
const hasMeetings = preset === 'release' || isSanitizer(preset);
const withMeetings = hasMeetings && spawnSync('janus', ['--version']).error === undefined;

const WITHOUT_SANITIZER = [
  'test/js/browser/',
  ...[
    'audio',
    'browser',
    'devices',
    'doctor',
    'endurance',
    'guide',
    'installed',
    'operating',
    'relay',
    'repair',
    'several_servers',
    'sfu',
    'silent_server',
    'two_terminals',
  ].map((name) => `test/js/webrtc/${name}.test.mjs`),
];

// The files that take longest start first, so that none of them runs alone at the end.
const LONGEST = [
  'test/js/reliability/trials.test.mjs',
  'test/js/browser/meeting.test.mjs',
  'test/package/release.test.mjs',
  'test/js/scripts/run_tests.test.mjs',
  'test/js/reliability/soak.test.mjs',
  'test/fuzz/release.test.mjs',
  'test/js/widget/processes_killed.test.mjs',
  'test/js/webrtc/failures.test.mjs',
  'test/js/webrtc/browser.test.mjs',
];

// These hold what was measured against a second measurement of the same moment. Another file beside
// them would leave too little of a small machine for the two to agree.
const ALONE = ['test/js/webrtc/statistics.test.mjs'];

const rank = (file) => (LONGEST.includes(file) ? LONGEST.indexOf(file) : LONGEST.length);

function testFiles() {
  const below = (directory) =>
    existsSync(directory)
      ? readdirSync(directory, { recursive: true }).map((name) => path.join(directory, name))
      : [];
  return below('test/js')
    .filter((file) => file.endsWith('.test.mjs'))
    .concat(below('test').filter((file) => file.endsWith(`/${preset}.test.mjs`)))
    .filter((file) => withBrowser || !WITHOUT_SANITIZER.some((start) => file.startsWith(start)))
    .filter((file) => withMeetings || !file.startsWith('test/js/webrtc/'))
    .filter((file) => file.includes(only) && !without.some((text) => file.includes(text)))
    .sort()
    .sort((one, other) => rank(one) - rank(other));
}

// Resolves when the process has ended and its output was shown. The output is kept in a file, so
// that nothing is lost when the process crashes.
async function runTestFile(file, environment) {
  const base = path.join(results, file.replaceAll('/', '.'));
  const output = openSync(`${base}.log`, 'w');
  const start = performance.now();
  const test = spawn(
    process.execPath,
    [
      ...['--import', './scripts/child_environment.mjs'],
      ...['--import', './scripts/cancel_endless_waits.mjs'],
      ...['--test-reporter=spec', '--test-reporter-destination=stdout'],
      ...['--test-reporter=./scripts/test_counts.mjs', `--test-reporter-destination=${base}.json`],
      file,
    ],
    {
      env: environment,
      stdio: ['ignore', output, output],
      timeout: TIME_LIMIT_SECONDS * 1000,
      killSignal: 'SIGKILL',
    },
  );
  closeSync(output);
  const [status, signal] = await new Promise((resolve, reject) => {
    test.on('error', reject);
    test.on('exit', (...outcome) => resolve(outcome));
  });
  const seconds = ((performance.now() - start) / 1000).toFixed();
  process.stdout.write(`\n${file}: ${seconds} s\n${readFileSync(`${base}.log`, 'utf8')}`);

  const written = existsSync(`${base}.json`) ? readFileSync(`${base}.json`, 'utf8') : '';
  if (!written) {
    addFailure(file, `${howItEnded(status, signal)} before its tests had reported`);
    return;
  }
  const counts = JSON.parse(written);
  addCounts(file, counts);
  if (counts.failed === 0 && status !== 0) addFailure(file, howItEnded(status, signal));
  else if (counts.passed + counts.failed === 0) addFailure(file, 'no tests were run');
}

async function runTestFiles(environment) {
  const files = testFiles();
  if (files.length === 0 && !only) addFailure('test files', 'none was found');
  const [alone, shared] = [true, false].map((isAlone) =>
    files.filter((file) => ALONE.includes(file) === isAlone),
  );
  const runAll = async (some) => {
    for (let file = some.shift(); file; file = some.shift()) await runTestFile(file, environment);
  };
  await Promise.all(Array.from({ length: PARALLEL }, () => runAll(shared)));
  await runAll(alone);
}

function addSanitizerReports() {
  for (const name of readdirSync(reports)) {
    const report = readFileSync(path.join(reports, name), 'utf8');
    process.stdout.write(`\n${report}`);
    addFailure(path.relative(root, path.join(reports, name)), 'a sanitizer reported');
  }
}

const { forEveryProcess, forNode } = sanitizerEnvironment(preset, reports);
// The first process that uses GStreamer after a change of its plugins has them all loaded by a
// program of its own. That would be into the sanitizer's runtime, if node were the first.
if (withMeetings && isSanitizer(preset)) {
  spawnSync(path.join(build, 'webrtc', 'examine_webrtc_engine'), { stdio: 'ignore' });
}
if (withNative) runNativeTests({ ...process.env, ...forEveryProcess });
await runTestFiles({ ...process.env, ...forEveryProcess, ...forNode, TESSEL_BUILD: build });
addSanitizerReports();
if (hasMeetings && !withMeetings)
  complaints.push('test/js/webrtc/ was left out: there is no janus');
if (total.passed + total.failed === 0) addFailure(`--only ${only}`, 'no tests were run');

console.log('');
for (const complaint of complaints) console.log(complaint);
console.log(`${total.passed} passed, ${total.failed} failed`);
process.exitCode = total.failed === 0 ? 0 : 1;
