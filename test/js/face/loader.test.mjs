// How the addon is found, and what is said when it cannot be loaded.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { copyFileSync, mkdirSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { runInChild } from '../../support/child.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { addonFile, build, repository } from '../../support/build.mjs';
import { face, requireFace } from '../../support/face.mjs';

const { addonPath, loadAddon } = requireFace('./load_addon.js');

const ADVICE =
  "TESSEL_WRAPPER_ADDON names this file: correct it, or unset it to use the package's own build.";

// What requiring the package says in a process with this environment, without the stack.
function refusal(environment) {
  const child = runInChild(
    ({ say }) => {
      const { createRequire } = require('node:module');
      try {
        createRequire(process.argv[1])('./js/index.js');
        say('loaded');
      } catch (error) {
        say(JSON.stringify([error.message, 'cause' in error, error.cause?.code]));
      }
    },
    { modules: ['./support/child.mjs'], args: [path.join(repository, 'x')], environment },
  );
  assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
  const [said] = child.said;
  assert.notEqual(said, 'loaded');
  const [message, hasCause, code] = JSON.parse(said);
  return { lines: message.split('\n'), hasCause, code };
}

test('require and import export the same names, which are those of the declarations', async () => {
  const imported = await import('tessel-wrapper');
  assert.equal(imported.default, face);
  assert.deepEqual(
    Object.keys(imported)
      .filter((name) => name !== 'default' && name !== 'module.exports')
      .sort(),
    Object.keys(face).sort(),
  );
});

test('the classes of the addon are exported unchanged', () => {
  const addon = loadAddon();
  assert.equal(face.TesselWrapper, addon.TesselWrapper);
  assert.equal(face.TesselWrapperProxy, addon.TesselWrapperProxy);
});

test('the release build is loaded unless the environment names another', (t) => {
  const { TESSEL_WRAPPER_ADDON: named } = process.env;
  t.after(() => (process.env.TESSEL_WRAPPER_ADDON = named));
  assert.equal(addonPath(), named);
  process.env.TESSEL_WRAPPER_ADDON = 'relative/a.node';
  assert.equal(addonPath(), path.resolve('relative/a.node'));
  for (const unset of ['', undefined]) {
    if (unset === undefined) delete process.env.TESSEL_WRAPPER_ADDON;
    else process.env.TESSEL_WRAPPER_ADDON = unset;
    assert.equal(addonPath(), path.join(repository, 'build/release/tesselWrapper.node'));
  }
});

test('an addon with the embedded engine is reported where that for real meetings is selected', () => {
  const { lines } = refusal({ TESSEL_WRAPPER_ADDON: addonFile, TESSEL_WRAPPER_ENGINE: 'webrtc' });
  assert.deepEqual(lines, [
    `Cannot use ${addonFile}`,
    'Its engine is not the one for real meetings.',
    ADVICE,
  ]);
});

test('a missing addon file is reported', () => {
  const { lines, hasCause } = refusal({ TESSEL_WRAPPER_ADDON: '/nowhere/a.node' });
  assert.deepEqual(lines, ['Cannot load /nowhere/a.node', 'There is no such file.', ADVICE]);
  assert.equal(hasCause, false);
});

test('an addon path that is a directory or a special file is reported', (t) => {
  const directory = temporaryDirectory(t);
  const script = path.join(directory, 'script.js');
  writeFileSync(script, '');
  for (const [file, explanation] of [
    [directory, 'It is a directory: name the file tesselWrapper.node in it.'],
    [script, 'It is not a .node file.'],
  ]) {
    const { lines, hasCause } = refusal({ TESSEL_WRAPPER_ADDON: file });
    assert.deepEqual(lines, [`Cannot load ${file}`, explanation, ADVICE]);
    assert.equal(hasCause, false);
  }
});

test('a package that is not built is reported', (t) => {
  const directory = temporaryDirectory(t);
  const modules = ['engine_choice', 'load_addon', 'process_record'].map((name) => `js/${name}.js`);
  for (const file of [...modules, 'bin/tessel-wrapper.js']) {
    mkdirSync(path.join(directory, path.dirname(file)), { recursive: true });
    copyFileSync(path.join(repository, file), path.join(directory, file));
  }
  const { TESSEL_WRAPPER_ADDON: named } = process.env;
  t.after(() => (process.env.TESSEL_WRAPPER_ADDON = named));
  delete process.env.TESSEL_WRAPPER_ADDON;
  const copy = requireFace(path.join(directory, 'js/load_addon.js'));
  assert.throws(copy.loadAddon, ({ message }) => {
    const [, explanation, advice] = message.split('\n');
    assert.equal(explanation, 'There is no such file.');
    assert.equal(
      advice,
      'Build it with "npx tessel-wrapper build", or name another build in TESSEL_WRAPPER_ADDON. ' +
        '"npx tessel-wrapper doctor" looks at the rest.',
    );
    return true;
  });
});

const PERMISSION_MODEL = process.allowedNodeEnvironmentFlags.has('--permission')
  ? '--permission'
  : '--experimental-permission';
const READING = [repository, `${build}/`, '/dev/shm/'].map((path) => `--allow-fs-read=${path}`);
const JOINING = `
  const { Meeting } = require(${JSON.stringify(path.join(repository, 'js/index.js'))});
  Meeting.open({ logPath: '/dev/null' }).then(async (meeting) => {
    const added = meeting.waitFor('streamAdded');
    await meeting.join({ uri: 'tessel:demo?participants=1' });
    await added;
    await meeting.enterWidgetMode({ type: 'remote', streamIndex: 0 });
    meeting.close();
    console.log('joined');
  });`;

// What a node says that is started with these flags and joins a meeting.
function join(...flags) {
  const { status, stdout, stderr } = spawnSync(process.execPath, [...flags, '--eval', JOINING], {
    encoding: 'utf8',
  });
  return { status, lines: `${stdout}${stderr}`.split('\n') };
}

test('when Node.js does not permit addons, the error names the option that permits them', () => {
  const refusal = `Cannot load ${addonFile}: Cannot load native addon because loading addons is disabled.`;
  for (const [flags, advice] of [
    [['--no-addons'], 'Node.js was started with --no-addons: start it without.'],
    [
      [PERMISSION_MODEL, ...READING],
      'The permission model of Node.js keeps addons out: start node with --allow-addons.',
    ],
  ]) {
    const { status, lines } = join(...flags);
    assert.equal(status, 1);
    const start = lines.findIndex((line) => line.endsWith(refusal));
    assert.equal(lines[start + 1], advice, lines.join('\n'));
  }
});

test('when Node.js may not read the addon, the error names the options that permit it', () => {
  const { status, lines } = join(PERMISSION_MODEL, `--allow-fs-read=${repository}js/`);
  assert.equal(status, 1);
  const start = lines.findIndex((line) => line.includes(`Cannot load ${addonFile}: Access to`));
  assert.equal(
    lines[start + 1],
    'The permission model of Node.js keeps it from being read: ' +
      'start node with --allow-fs-read for it and for /dev/shm, and with --allow-addons.',
    lines.join('\n'),
  );
});

test('under the permission model a meeting needs those options only', () => {
  const { status, lines } = join(PERMISSION_MODEL, ...READING, '--allow-addons');
  assert.equal(status, 0, lines.join('\n'));
  assert.ok(lines.includes('joined'));
});

test('a file that is not an addon is reported', (t) => {
  const file = path.join(temporaryDirectory(t), 'broken.node');
  writeFileSync(file, 'not an ELF file, but long enough to be looked at as one'.repeat(10));
  const { lines, code } = refusal({ TESSEL_WRAPPER_ADDON: file });
  assert.deepEqual(lines, [
    `Cannot load ${file}: ${file}: invalid ELF header`,
    'The addon was built for another system, or not to its end.',
    ADVICE,
  ]);
  assert.equal(code, 'ERR_DLOPEN_FAILED');
});

test('an addon whose engine is missing is reported', (t) => {
  const file = path.join(temporaryDirectory(t), 'lonely.node');
  copyFileSync(addonFile, file);
  const { lines } = refusal({ TESSEL_WRAPPER_ADDON: file });
  assert.deepEqual(lines, [
    `Cannot load ${file}: libtesselclient.so: cannot open shared object file: No such file or directory`,
    'The engine is missing: libtesselclient.so has to lie beside the addon, or in a directory of LD_LIBRARY_PATH.',
    ADVICE,
  ]);
});

test('an invalid engine library found before the right one is reported', (t) => {
  const directory = temporaryDirectory(t);
  writeFileSync(path.join(directory, 'libtesselclient.so'), 'x'.repeat(1000));
  const { lines } = refusal({ LD_LIBRARY_PATH: directory });
  assert.deepEqual(lines, [
    `Cannot load ${addonFile}: ${directory}/libtesselclient.so: invalid ELF header`,
    'The engine that was found does not fit: look at LD_LIBRARY_PATH, which comes before the directory of the addon.',
    ADVICE,
  ]);
});
