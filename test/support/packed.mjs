// The package as npm packs it, and programs that run in an environment of their own.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { existsSync, mkdirSync, readdirSync, symlinkSync } from 'node:fs';
import path from 'node:path';

import { repository } from './build.mjs';

// Packs the package into this directory. Answers with the tarball's path.
export function pack(directory) {
  run(repository, {}, 'npm', 'pack', '--pack-destination', directory);
  const [tarball] = readdirSync(directory).filter((name) => name.endsWith('.tgz'));
  return path.join(directory, tarball);
}

// The standard output of a program that ends without an error. Its environment, to which that given
// is added, has no reference to this repository's build.
export function run(directory, added, command, ...args) {
  const environment = { ...process.env, LD_PRELOAD: '', ...added };
  for (const name of ['TESSEL_BUILD', 'TESSEL_WRAPPER_ADDON']) delete environment[name];
  const { status, signal, error, stdout, stderr } = spawnSync(command, args, {
    cwd: directory,
    env: environment,
    encoding: 'utf8',
    timeout: 500_000,
    killSignal: 'SIGKILL',
  });
  if (error) throw error;
  assert.deepEqual([status, signal], [0, null], `${command} ${args.join(' ')}\n${stdout}${stderr}`);
  return stdout;
}

// Makes the directory with node and what npm needs beside it. Answers with the environment in which
// programs find nothing else: no compiler, no CMake.
export function environmentOfNode(directory) {
  mkdirSync(directory);
  const find = (name) =>
    process.env.PATH.split(':')
      .map((place) => path.join(place, name))
      .find((file) => existsSync(file));
  symlinkSync(process.execPath, path.join(directory, 'node'));
  for (const name of ['npm', 'env', 'sh']) symlinkSync(find(name), path.join(directory, name));
  return { PATH: directory };
}
