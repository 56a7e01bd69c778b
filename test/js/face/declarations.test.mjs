// The TypeScript declarations: the uses that they accept and refuse, that they match the exports,
// and that the API reference matches them.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { inspect } from 'node:util';

import { repository } from '../../support/build.mjs';
import { face, requireFace } from '../../support/face.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';

const TYPES = path.join(repository, 'test/types');
const EXPECTATION = /^ *\/\/ @ts-expect-error: /;

const read = (...parts) => readFileSync(path.join(repository, ...parts), 'utf8');
const readLines = (...parts) => read(...parts).split('\n');

// What the compiler complains about in `files`, by name, with the options of the type tests:
// { line, text } in order. Few runs for all tests, since most of its time goes into node's types.
function complaints(files, compilerOptions = {}) {
  const directory = mkdtempSync(path.join(TYPES, 'checked-'));
  try {
    for (const [name, source] of Object.entries(files)) {
      writeFileSync(path.join(directory, name), source);
    }
    const include = Object.keys(files);
    const configuration = { extends: '../tsconfig.json', include, compilerOptions };
    writeFileSync(path.join(directory, 'tsconfig.json'), JSON.stringify(configuration));
    const { stdout, status, error } = spawnSync(
      path.join(repository, 'node_modules/.bin/tsc'),
      ['--project', directory, '--pretty', 'false'],
      { encoding: 'utf8', cwd: directory, env: { ...process.env, LD_PRELOAD: '' } },
    );
    if (error) throw error;
    const found = [...stdout.matchAll(/^(\S+?)\((\d+),\d+\): error (.*)$/gm)];
    if ((status !== 0) !== found.length > 0) throw new Error(stdout);
    const of = (name) => found.filter(([, file]) => file === name);
    return (name) => of(name).map(([, , line, text]) => ({ line: Number(line), text }));
  } finally {
    rmSync(directory, { recursive: true });
  }
}

// { kind, members, base } of every exported name; statics are named "static name", and the
// constructor is left out.
function declarations(file = 'js/index.d.ts') {
  const found = new Map();
  let current;
  for (const line of readLines(file)) {
    const start =
      /^export (class|interface|type|function|const) (\w+)(?:<.*?>)?(?: extends (\w+))?/.exec(line);
    if (start) {
      const [, kind, name, base] = start;
      current = { kind, members: [], base };
      found.set(name, current);
    }
    const member = /^ {2}(?:readonly )?((?:static )?(?:\w+|\[Symbol\.dispose\]))\??[:(<]/.exec(
      line,
    );
    if (member && /class|interface/.test(current.kind) && member[1] !== 'constructor') {
      current.members.push(member[1]);
    }
  }
  return found;
}

test('exactly the values that are declared are exported', () => {
  const values = [...declarations()].filter(([, { kind }]) => /class|function|const/.test(kind));
  assert.deepEqual(values.map(([name]) => name).sort(), Object.keys(face).sort());
});

test('the classes have exactly the members that are declared', () => {
  const nameOf = (key) => (key === Symbol.dispose ? '[Symbol.dispose]' : String(key));
  for (const name of ['TesselWrapper', 'TesselWrapperProxy', 'Meeting', 'Widget']) {
    const members = Reflect.ownKeys(face[name].prototype)
      // For console.log, not for applications.
      .filter((key) => key !== inspect.custom)
      .map(nameOf)
      .filter((member) => member !== 'constructor');
    const statics = Object.keys(Object.getOwnPropertyDescriptors(face[name]))
      .filter((member) => !Object.hasOwn(Function.prototype, member) && member !== 'prototype')
      .map((member) => `static ${member}`);
    const declared = declarations().get(name).members;
    assert.deepEqual([...members, ...statics].sort(), [...declared].sort(), name);
  }
});

// Compiles only if `keyof Name` is exactly the members read out of the declarations.
function assertion([name, { kind, members, base }]) {
  const quoted = (member) =>
    member === '[Symbol.dispose]' ? 'typeof Symbol.dispose' : `'${member}'`;
  const own = members.filter((member) => !member.startsWith('static ')).map(quoted);
  const inherited = base === 'Error' ? 'keyof Error' : `keyof tessel.${base}`;
  const parts = base ? [...own, inherited] : own;
  const statics = members
    .filter((member) => member.startsWith('static '))
    .map((member) => quoted(member.slice(7)));
  const parameter = name === 'WaitOptions' ? '<unknown>' : '';
  const lines = [
    `expect<Equal<keyof tessel.${name}${parameter}, ${parts.join(' | ') || 'never'}>>();`,
  ];
  if (kind === 'class' && base === undefined) {
    lines.push(
      `expect<Equal<keyof typeof tessel.${name}, ${['"prototype"', ...statics].join(' | ')}>>();`,
    );
  }
  return lines.join('\n');
}

const EXPECT = `
type Equal<A, B> = [A] extends [B] ? ([B] extends [A] ? true : false) : false;
declare function expect<_Right extends true>(): void;`;

function memberAssertions() {
  const records = [...declarations()].filter(([, { kind }]) => /class|interface/.test(kind));
  return [`import * as tessel from 'tessel-wrapper';${EXPECT}`, ...records.map(assertion)].join(
    '\n',
  );
}

// The events of the addon's emitting script: their names, their properties and which may be absent.
const EVENT_SHAPES = [
  ...read('addon/events/emit_functions.cc').matchAll(
    /^ {2}\(emitter, ([\w, ]+)\) => \{\n {4}emitter\.emit\("(\w+)", (?:(\w+) === undefined)?/gm,
  ),
].map(([, properties, name, optional]) => ({
  name,
  properties: properties.split(', ').map((property) => `'${property}'`),
  optional: optional && `'${optional}'`,
}));

function eventAssertions() {
  const names = EVENT_SHAPES.map(({ name }) => `'${name}'`).join(' | ');
  return [
    `import type { MeetingEvents, WrapperEvents } from 'tessel-wrapper';${EXPECT}`,
    `expect<Equal<keyof WrapperEvents, ${names}>>();`,
    `expect<Equal<keyof MeetingEvents, ${names} | 'participants'>>();`,
    ...EVENT_SHAPES.map(({ name, properties, optional }) => {
      const payload = `WrapperEvents['${name}']`;
      const first = optional ?? properties[0];
      const isOptional = `{} extends Pick<${payload}, ${first}> ? true : false`;
      return `expect<Equal<keyof ${payload}, ${properties.join(' | ')}>>();
        expect<Equal<${isOptional}, ${optional !== undefined}>>();`;
    }),
  ].join('\n');
}

const BAD_USES = readLines('test/types/bad_uses.mts');

const complaintsIn = complaints({
  'good_uses.mts': read('test/types/good_uses.mts'),
  'require.cts': read('test/types/require.cts'),
  'bad_uses.mts': BAD_USES.join('\n'),
  'bad_uses_alone.mts': BAD_USES.map((line) => line.replace(EXPECTATION, '// ')).join('\n'),
  'members.mts': memberAssertions(),
  'events.mts': eventAssertions(),
});

// The programs of the documents, by name. What they leave to the reader, being short, is no error.
const PROGRAMS = Object.fromEntries(
  ['README.md', 'docs/guide.md'].flatMap((document) =>
    [...read(document).matchAll(/^```js[^\n]*\n([^`]*? from 'tessel-wrapper';\n.*?)^```$/gms)].map(
      ([, source], index) => [`${path.basename(document, '.md')}_${index}.mjs`, source],
    ),
  ),
);
const complaintsInPrograms = complaints(PROGRAMS, {
  allowJs: true,
  checkJs: true,
  noImplicitAny: false,
  noUncheckedIndexedAccess: false,
});

test('the programs in the documents compile, with type checks too', () => {
  const names = Object.keys(PROGRAMS);
  assert.equal(names.filter((name) => name.startsWith('README')).length, 1);
  assert.ok(names.length > 7);
  for (const name of names) assert.deepEqual(complaintsInPrograms(name), [], PROGRAMS[name]);
});

test('correct uses compile, imported and required', () => {
  assert.deepEqual(complaintsIn('good_uses.mts'), []);
  assert.deepEqual(complaintsIn('require.cts'), []);
});

test('each incorrect use is a compile error exactly where it is expected', () => {
  assert.deepEqual(complaintsIn('bad_uses.mts'), []);
  const expected = BAD_USES.flatMap((line, index) => (EXPECTATION.test(line) ? [index + 2] : []));
  assert.ok(expected.length > 40);
  assert.deepEqual(
    complaintsIn('bad_uses_alone.mts').map(({ line }) => line),
    expected,
  );
});

const BROWSER_USE = `
import type { Meeting, PictureFrame } from 'tessel-wrapper';
import { I420Renderer } from 'tessel-wrapper/renderer';

const renderer = new I420Renderer(document.createElement('canvas'));
export function show(frame: PictureFrame) {
  renderer.draw(frame);
}
export const join = (meeting: Meeting, signal: AbortSignal) =>
  meeting.join({ uri: 'tessel:demo' }, { signal });
// @ts-expect-error: there are no types of Node.js
process.exit();
`;

test('the types can be used in a browser project, where there are none of Node.js', (t) => {
  const project = temporaryDirectory(t);
  const installed = path.join(project, 'node_modules/tessel-wrapper');
  for (const file of ['package.json', 'js/index.d.ts', 'js/renderer/renderer.d.mts']) {
    mkdirSync(path.dirname(path.join(installed, file)), { recursive: true });
    writeFileSync(path.join(installed, file), read(file));
  }
  writeFileSync(path.join(project, 'page.ts'), BROWSER_USE);
  const compilerOptions = {
    ...{ noEmit: true, strict: true, target: 'es2022', module: 'esnext' },
    ...{ moduleResolution: 'bundler', lib: ['es2022', 'dom'], types: [], skipLibCheck: false },
  };
  const configuration = { compilerOptions, files: ['page.ts'] };
  writeFileSync(path.join(project, 'tsconfig.json'), JSON.stringify(configuration));
  const { stdout, status, error } = spawnSync(
    path.join(repository, 'node_modules/.bin/tsc'),
    ['--project', project, '--pretty', 'false'],
    { encoding: 'utf8', cwd: project, env: { ...process.env, LD_PRELOAD: '' } },
  );
  if (error) throw error;
  assert.deepEqual([status, stdout], [0, '']);
});

test('the declarations themselves are without error', () => {
  assert.deepEqual(complaintsIn('../../../js/index.d.ts'), []);
});

test('these tests find every member of the declarations', () => {
  assert.deepEqual(complaintsIn('members.mts'), []);
});

test('the options that are declared are those that are checked', () => {
  const declared = ['Limits', 'WaitOptions', 'FrameOptions'].flatMap(
    (name) => declarations().get(name).members,
  );
  const { OPTION_NAMES } = requireFace('./options.js');
  assert.deepEqual([...new Set(declared)].sort(), [...OPTION_NAMES].sort());
});

test('the events and their payloads are those that the addon emits', () => {
  assert.equal(EVENT_SHAPES.length, 14);
  assert.deepEqual(
    [...EVENT_SHAPES.map(({ name }) => name), 'participants'].sort(),
    [...requireFace('./index.js').EVENT_NAMES].sort(),
  );
  assert.deepEqual(complaintsIn('events.mts'), []);
});

// A text of TypeScript without comments and what depends on how it is broken into lines.
const flat = (text) =>
  text
    .replace(/\/\*\*.*?\*\//gs, '')
    .replace(/\s+/g, ' ')
    .replace(/,? ([)\]>])/g, '$1')
    .replace(/([([<]) /g, '$1')
    .replace(/;? ?$/, '')
    .trim();

// The signatures in `file`, as the reference shows them, by exported name: each member of a class
// or an interface that is not private, else all of it.
function signatures(file) {
  const found = new Map();
  const source = read(file).replace(/^\/\/.*\n/gm, '');
  for (const statement of source.split(/^export /m).slice(1)) {
    const [, kind, name] = /^(\w+) (\w+)/.exec(statement);
    const body = statement.slice(statement.indexOf('{') + 1, statement.lastIndexOf('}'));
    const members = () =>
      body.split(/;\n+(?= {2}[^\s}]|$)/).map((member) =>
        flat(member)
          .replace(/^readonly /, '')
          .replace(/^constructor/, `new ${name}`),
      );
    const texts = /class|interface/.test(kind) ? members() : [flat(statement)];
    const shown = texts.filter((text) => text !== '' && !text.startsWith('private '));
    found.set(name, [...(found.get(name) ?? []), ...shown]);
  }
  return found;
}

test('the API reference has the signatures of the declarations', () => {
  const documented = new Map();
  let current;
  const reference = read('docs/api.md');
  for (const [, heading, member, block] of reference.matchAll(
    /^### `(\w+)`$|^- `([^`]+)`|^```ts\n(.*?)^```$/gms,
  )) {
    if (heading) documented.set(heading, (current = []));
    else current.push(flat(member ?? block));
  }
  assert.deepEqual(
    documented,
    new Map([...signatures('js/index.d.ts'), ...signatures('js/renderer/renderer.d.mts')]),
  );
});

test('the API reference has exactly the exported names and members', () => {
  const documented = new Map();
  for (const line of readLines('docs/api.md')) {
    const heading = /^### `(\w+)`$/.exec(line);
    if (heading) documented.set(heading[1], []);
    const member = /^- `(?!new )((?:static )?(?:\w+|\[Symbol\.dispose\]))\??[:(<]/.exec(line);
    if (member) [...documented.values()].at(-1).push(member[1]);
  }
  const all = [...declarations(), ...declarations('js/renderer/renderer.d.mts')];
  const declared = new Map(all.map(([name, { members }]) => [name, members]));
  assert.deepEqual(documented, declared);
});
