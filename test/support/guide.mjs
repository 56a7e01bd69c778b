// The programs of the guide.

import assert from 'node:assert/strict';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import path from 'node:path';
import { after } from 'node:test';

import { repository } from './build.mjs';

export const guide = readFileSync(path.join(repository, 'docs/guide.md'), 'utf8');

// Their sources, by name.
export const examples = new Map(
  [...guide.matchAll(/^```js (\S+)\n(.*?)^```$/gms)].map(([, name, source]) => [name, source]),
);

// Where they are run: in the repository, where the package finds itself by its name. It is removed
// after the tests.
export const directory = mkdtempSync(path.join(repository, 'build', 'guide-'));
after(() => rmSync(directory, { recursive: true }));

// The example with other statements instead of some of its own.
export function variant(name, replacements) {
  return Object.entries(replacements).reduce((source, [statement, other]) => {
    assert.ok(source.includes(statement), statement);
    return source.replace(statement, () => other);
  }, examples.get(name));
}
