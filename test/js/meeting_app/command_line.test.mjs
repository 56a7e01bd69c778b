// The application's messages on the terminal about invalid options.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { cpSync, existsSync, symlinkSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { test } from 'node:test';

import { repository } from '../../support/build.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { PROGRAM } from '../../support/meeting_app/meeting_app.mjs';

// The application with these options, until the test ends.
function start(t, options) {
  const child = spawn(process.execPath, [PROGRAM, ...options]);
  const ended = once(child, 'close');
  t.after(async () => {
    child.kill('SIGINT');
    await ended;
  });
  return { child, ended };
}

const COMBINING =
  'Options: --participants and --video, or --uri instead of both; --name, --port and --output with ' +
  'either; or --headless with --video, --seconds and --output.';
const WITHOUT_A_PAGE = 'Options without a page: --video, --seconds and --output.';

for (const [options, line] of [
  [['--bogus'], `Unknown option '--bogus'. ${COMBINING}`],
  [['here'], `Unexpected argument 'here'. ${COMBINING}`],
  [['--port', '--video'], `Option '--port' argument is ambiguous. ${COMBINING}`],
  [['--port', 'abc'], `--port abc: not a number from 0 to 65535. ${COMBINING}`],
  [['--port', '65536'], `--port 65536: not a number from 0 to 65535. ${COMBINING}`],
  ...['51', 'x', '-1', ''].map((value) => [
    [`--participants=${value}`],
    `--participants ${value}: not a number from 0 to 50. ${COMBINING}`,
  ]),
  [
    ['--uri', 'tessel:demo', '--participants', '2'],
    `--uri describes the whole meeting. ${COMBINING}`,
  ],
  [['--uri', 'tessel:demo', '--video', 'a.y4m'], `--uri describes the whole meeting. ${COMBINING}`],
  ...[
    ['participants', '2'],
    ['uri', 'tessel:demo'],
    ['name', 'Ada'],
    ['port', '8080'],
  ].map(([name, value]) => [
    ['--headless', `--${name}`, value],
    `--${name} is for the meeting with a page. ${WITHOUT_A_PAGE}`,
  ]),
  [['--headless', '--bogus'], `Unknown option '--bogus'. ${WITHOUT_A_PAGE}`],
  [['--headless', '--seconds', 'x'], `--seconds x: not a positive number. ${WITHOUT_A_PAGE}`],
]) {
  test(`${options.join(' ')} prints one line and sets the exit code 2`, async (t) => {
    const { child, ended } = start(t, options);
    const [words, errors] = await Promise.all([child.stdout.toArray(), child.stderr.toArray()]);
    const [code] = await ended;
    assert.deepEqual([code, words.join(''), errors.join('')], [2, '', `${line}\n`]);
  });
}

for (const mode of [[], ['--headless']]) {
  test(`an --output that is a file is refused ${mode}`, async (t) => {
    const file = path.join(temporaryDirectory(t), 'file');
    writeFileSync(file, '');
    const { child, ended } = start(t, [...mode, '--output', file]);
    const [words, errors] = await Promise.all([child.stdout.toArray(), child.stderr.toArray()]);
    const [code] = await ended;
    assert.deepEqual([code, words.join('')], [2, '']);
    const usage = mode.length > 0 ? WITHOUT_A_PAGE : COMBINING;
    assert.equal(
      errors.join(''),
      `--output ${file}: EEXIST: file already exists, mkdir '${file}'. ${usage}\n`,
    );
  });
}

test('a port in use is refused, and nothing is left in /dev/shm', async (t) => {
  const other = createServer().listen(0, '127.0.0.1');
  await once(other, 'listening');
  t.after(() => other.close());
  const { port } = other.address();
  const { child, ended } = start(t, ['--port', `${port}`, '--output', temporaryDirectory(t)]);
  const [words, errors] = await Promise.all([child.stdout.toArray(), child.stderr.toArray()]);
  const [code] = await ended;
  assert.equal(code, 2);
  assert.equal(
    errors.join(''),
    `--port ${port}: listen EADDRINUSE: address already in use 127.0.0.1:${port}. ${COMBINING}\n`,
  );
  const [, name] = /Creating shared mem with name:\/(\w+),/.exec(words.join(''));
  assert.equal(existsSync(`/dev/shm/${name}`), false);
});

test('a missing WebRTC engine is reported with the command that builds it', async (t) => {
  const tree = temporaryDirectory(t);
  for (const name of ['js', 'examples', 'bin', 'package.json']) {
    cpSync(path.join(repository, name), path.join(tree, name), { recursive: true });
  }
  symlinkSync(path.join(repository, 'node_modules'), path.join(tree, 'node_modules'));
  const program = path.join(tree, 'examples/meeting/main.mjs');
  const options = ['--uri', 'janus+ws://192.0.2.1/?room=1', '--output', tree];
  const child = spawn(process.execPath, [program, ...options], {
    env: { ...process.env, TESSEL_WRAPPER_ADDON: undefined },
  });
  const ended = once(child, 'close');
  const [words, errors] = await Promise.all([child.stdout.toArray(), child.stderr.toArray()]);
  assert.deepEqual([await ended, words.join('')], [[1, null], '']);
  assert.equal(
    errors.join(''),
    `Cannot load ${tree}/build/release/webrtc/tesselWrapper.node\nThere is no such file.\n` +
      'Build it with "npm run build:webrtc" in a clone of the repository, and name the clone\'s ' +
      'build/release/webrtc/tesselWrapper.node in TESSEL_WRAPPER_ADDON elsewhere.\n',
  );
});

for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) {
  test(`the address is printed before the join is answered, and ${signal} then ends the program`, async (t) => {
    const options = ['--uri', 'tessel:test?join=3600', '--output', temporaryDirectory(t)];
    const { child, ended } = start(t, options);
    child.stderr.resume();
    for await (const line of createInterface({ input: child.stdout })) {
      if (line.startsWith('The meeting is at ')) child.kill(signal);
    }
    assert.deepEqual(await ended, [0, null]);
  });
}

for (const [options, reason] of [
  [['--video', '/nope.y4m'], 'the clip cannot be opened: No such file or directory (404)'],
  [['--video', PROGRAM], 'the clip is not a YUV4MPEG2 file (415)'],
]) {
  test(`no page is served when ${options.join(' ')} makes the join impossible`, async (t) => {
    const { child, ended } = start(t, [...options, '--output', temporaryDirectory(t)]);
    const [words, errors] = await Promise.all([child.stdout.toArray(), child.stderr.toArray()]);
    const [code] = await ended;
    assert.equal(code, 2);
    assert.doesNotMatch(words.join(''), /The meeting is at/);
    assert.equal(errors.join(''), `The meeting cannot be joined: ${reason}. ${COMBINING}\n`);
  });
}

test('when the meeting refuses the join, the page is served and shows the reason', async (t) => {
  const options = ['--uri', 'tessel:demo?refuse=403', '--output', temporaryDirectory(t)];
  const { child, ended } = start(t, options);
  const words = child.stdout.toArray();
  const told = 'The meeting cannot be joined: ';
  const lines = [];
  for await (const line of createInterface({ input: child.stderr })) {
    lines.push(line);
    if (line.startsWith(told)) child.kill('SIGINT');
  }
  assert.deepEqual(await ended, [0, null]);
  assert.match((await words).join(''), /^The meeting is at http/m);
  assert.match(lines.join('\n'), new RegExp(`^${told}the meeting refused the join \\(403\\)$`));
});

for (const options of [['--help'], ['-h'], ['--headless', '--help'], ['--bogus', '--help']]) {
  test(`${options.join(' ')} lists the options, and no meeting is opened`, async (t) => {
    const { child, ended } = start(t, options);
    const [words, errors] = await Promise.all([child.stdout.toArray(), child.stderr.toArray()]);
    const [code] = await ended;
    assert.deepEqual([code, errors.join('')], [0, '']);
    const help = words.join('');
    assert.match(help, /^A meeting on the embedded engine, /);
    for (const name of 'participants video uri name port output headless seconds'.split(' ')) {
      assert.match(help, new RegExp(` --${name} `));
    }
    assert.doesNotMatch(help, /shared mem/);
  });
}
