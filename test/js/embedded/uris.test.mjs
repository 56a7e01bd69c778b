// Compares the embedded engine's document with the engine: its examples of uris and its tables of
// parameters.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';

import { Meeting } from '../../support/embedded_meeting.mjs';

const document = readFileSync(new URL('../../../docs/embedded-engine.md', import.meta.url), 'utf8');

const section = /\n## Uris\n(.*?)\n## /s.exec(document)[1];
const examples = section.match(/^tessel:[a-z].*$/gm);

// The names in the first column of the tables: '| `plug`, `unplug` | ...'.
const parameters = [...section.matchAll(/^\| (`.*?) \|/gm)].flatMap(([, names]) =>
  [...names.matchAll(/`(\w+)`/g)].map(([, name]) => name),
);

const namesIn = (uri) => [...uri.matchAll(/[?&](\w+)=/g)].map(([, name]) => name);

const BAD_URI = 400;

test('the examples use exactly the known parameters', () => {
  assert.ok(parameters.includes('participants') && parameters.includes('unplug'));
  assert.deepEqual([...new Set(examples.flatMap(namesIn))].sort(), parameters.toSorted());
});

for (const uri of examples) {
  test(`the engine understands ${uri}`, async (t) => {
    const meeting = new Meeting(t);
    if (await meeting.join(uri)) return;
    // The meeting may refuse the join, or its clip may be missing, but the uri is valid.
    const { code, reason } = await meeting.seen('callDisconnect');
    assert.notEqual(code, BAD_URI, reason);
  });
}

for (const name of parameters) {
  test(`a parameter ${name} without a value is refused`, async (t) => {
    const meeting = new Meeting(t);
    assert.equal(await meeting.join(`tessel:room?${name}=`), false);
    const { code, reason } = await meeting.seen('callDisconnect');
    assert.deepEqual([code, reason], [BAD_URI, `bad value: ${name}=`]);
  });
}
