// Bundled applications: the guide's configurations keep the package external. A bundled package
// reports that, or loads the addon that the environment names.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, readdirSync, symlinkSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { test } from 'node:test';
import { pathToFileURL } from 'node:url';

import { addonFile, build, repository } from '../../support/build.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';

const guide = readFileSync(path.join(repository, 'docs/guide.md'), 'utf8');
const programs = new Map(
  [...guide.matchAll(/^```js (\S+)\n(.*?)^```$/gms)].map(([, name, source]) => [name, source]),
);

const MEETING = `
  const meeting = await Meeting.open({ logPath: '/dev/null' });
  await meeting.join({ uri: 'tessel:demo?participants=1&size=64x36' });
  for await (const frame of meeting.frames({ type: 'remote', streamIndex: 0 })) {
    console.log('bytes:', copyI420(frame).length);
    break;
  }
  meeting.close();`;
const APPLICATION = {
  'application.mjs': `import { Meeting, copyI420 } from 'tessel-wrapper';${MEETING}`,
  'application.cjs': `const { Meeting, copyI420 } = require('tessel-wrapper');
    (async () => {${MEETING}})();`,
};

// The folder of an application in which npm has installed the package and the bundlers. The
// application imports the package by this name.
function makeProject(t, imported = 'tessel-wrapper') {
  const project = temporaryDirectory(t);
  const modules = path.join(project, 'node_modules');
  mkdirSync(modules);
  symlinkSync(repository, path.join(modules, 'tessel-wrapper'));
  symlinkSync(path.join(repository, 'node_modules/esbuild'), path.join(modules, 'esbuild'));
  for (const [name, source] of Object.entries(APPLICATION)) {
    writeFileSync(path.join(project, name), source.replace("'tessel-wrapper'", `'${imported}'`));
  }
  return project;
}

const require = createRequire(import.meta.url);
const { rollup } = require('@rollup/wasm-node');
const esbuild = require('esbuild');
const vite = await import('vite');
const webpack = require('webpack');

async function configurationIn(project, name) {
  const file = path.join(project, name);
  writeFileSync(file, programs.get(name));
  return (await import(pathToFileURL(file))).default;
}

function runWebpack(context, configuration) {
  return new Promise((resolve, reject) => {
    const done = (error, stats) =>
      error || stats.hasErrors() ? reject(error ?? new Error(stats.toString())) : resolve();
    const output = { path: path.join(context, 'dist'), ...configuration.output };
    webpack({ context, ...configuration, output }, done);
  });
}

// How a program of the project ends, and what it says. The environment names an addon or none.
function run(project, program, addon = '') {
  const { status, stdout, stderr } = spawnSync(process.execPath, [program], {
    cwd: project,
    env: { ...process.env, TESSEL_WRAPPER_ADDON: addon },
    encoding: 'utf8',
    timeout: 60_000,
    killSignal: 'SIGKILL',
  });
  return { status, lines: stdout.split('\n'), stderr };
}

function expectMeeting(outcome) {
  assert.deepEqual([outcome.status, outcome.stderr], [0, '']);
  assert.ok(outcome.lines.includes('bytes: 3456'));
}

// The engine for real meetings takes no such uri.
function expectRefusal({ status, stderr }) {
  assert.equal(status, 1);
  assert.match(
    stderr,
    /^CallError: the uri's scheme is neither janus\+ws nor janus\+wss \(400\)$/m,
  );
}

const BY_THE_GUIDE = {
  async esbuild(project) {
    writeFileSync(path.join(project, 'esbuild.mjs'), programs.get('esbuild.mjs'));
    const { status, stderr } = run(project, 'esbuild.mjs');
    assert.equal(status, 0, stderr);
  },
  async rollup(project) {
    const { input, external, output } = await configurationIn(project, 'rollup.config.mjs');
    const bundle = await rollup({ input: path.join(project, input), external });
    await bundle.write({ ...output, file: path.join(project, output.file) });
    await bundle.close();
  },
  async vite(project) {
    const configuration = await configurationIn(project, 'vite.config.mjs');
    const ssr = { ...configuration.ssr, noExternal: true };
    const root = { root: project, configFile: false, logLevel: 'silent' };
    await vite.build({ ...configuration, ssr, ...root });
  },
  async webpack(project) {
    await runWebpack(project, await configurationIn(project, 'webpack.config.mjs'));
  },
};

for (const [name, bundle] of Object.entries(BY_THE_GUIDE)) {
  test(`the guide's configuration of ${name} makes an application that works`, async (t) => {
    const project = makeProject(t);
    await bundle(project);
    assert.deepEqual(readdirSync(path.join(project, 'dist')), ['application.mjs']);
    const program = path.join('dist', 'application.mjs');
    assert.match(readFileSync(path.join(project, program), 'utf8'), /from ?["']tessel-wrapper["']/);
    expectMeeting(run(project, program));
  });

  test(`the guide's configuration of ${name} keeps the engine for real meetings external, too`, async (t) => {
    const project = makeProject(t, 'tessel-wrapper/webrtc');
    await bundle(project);
    const bundled = readFileSync(path.join(project, 'dist/application.mjs'), 'utf8');
    assert.match(bundled, /from ?["']tessel-wrapper\/webrtc["']/);
    assert.doesNotMatch(bundled, /dlopen/);
  });
}

const BUNDLED = {
  esbuild: (project) =>
    esbuild.build({
      absWorkingDir: project,
      entryPoints: ['application.cjs'],
      bundle: true,
      platform: 'node',
      outfile: 'dist/application.cjs',
    }),
  webpack: (project) =>
    runWebpack(project, {
      target: 'node',
      mode: 'development',
      devtool: false,
      entry: './application.cjs',
      output: { filename: 'application.cjs' },
    }),
};

for (const [name, bundle] of Object.entries(BUNDLED)) {
  for (const [imported, addon, expectOutcome] of [
    ['tessel-wrapper', addonFile, expectMeeting],
    ['tessel-wrapper/webrtc', path.join(build, 'webrtc', 'tesselWrapper.node'), expectRefusal],
  ]) {
    test(`bundled by ${name}, ${imported} says so, and loads the addon that is named`, async (t) => {
      const project = makeProject(t, imported);
      await bundle(project);
      const program = path.join('dist', 'application.cjs');
      const bundled = readFileSync(path.join(project, program), 'utf8');
      assert.doesNotMatch(bundled, /require\(["']tessel-w/);
      const { status, stderr } = run(project, program);
      assert.equal(status, 1);
      const lines = stderr.split('\n');
      const start = lines.findIndex((line) => line.startsWith('Error: Cannot load '));
      assert.deepEqual(lines.slice(start + 1, start + 3), [
        'There is no such file.',
        'tessel-wrapper was bundled, and its addon was not: keep tessel-wrapper external ' +
          '("Bundle your application" in its docs/guide.md), or name the addon in TESSEL_WRAPPER_ADDON.',
      ]);
      expectOutcome(run(project, program, addon));
    });
  }
}

test('the renderer is bundled for a browser without parts of Node.js', async (t) => {
  const project = makeProject(t);
  const { outputFiles } = await esbuild.build({
    absWorkingDir: project,
    stdin: { contents: "export * from 'tessel-wrapper/renderer';", resolveDir: project },
    bundle: true,
    platform: 'browser',
    format: 'esm',
    write: false,
  });
  assert.match(outputFiles[0].text, /I420Renderer/);
});
