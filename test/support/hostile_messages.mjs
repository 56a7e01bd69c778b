// What a hostile server makes of a message, and of a session description in it.

const NAME = 'Ada\u0000\nBob\u2028\u202eeve\u0085';
const LONG = 'x'.repeat(100_000);
const DEPTH = 100_000;
const DEEP = '"DEEP"';
const HUGE = '"HUGE"';

// Each value of a message, at whatever depth, is replaced by each of these.
const VALUES = [null, true, -1, 1e308, 'HUGE', '', NAME, LONG, [], [[]], {}, [null], 'DEEP'];

// As a text; numbers that are none of JavaScript's, and what is nested deeper than JavaScript writes.
const textOf = (message) =>
  JSON.stringify(message)
    .replaceAll(HUGE, '18446744073709551616')
    .replaceAll(DEEP, `${'['.repeat(DEPTH)}${']'.repeat(DEPTH)}`);

function* pathsOf(value, path = []) {
  if (path.length > 0) yield path;
  if (value === null || typeof value !== 'object') return;
  for (const name of Object.keys(value)) yield* pathsOf(value[name], [...path, name]);
}

function changed(message, path, change) {
  const copy = structuredClone(message);
  let object = copy;
  for (const name of path.slice(0, -1)) object = object[name];
  change(object, path.at(-1));
  return textOf(copy);
}

// All of them, as texts: those that are no message of the protocol, and one for each value and fault.
export function* hostileForms(message) {
  const text = textOf(message);
  yield* [text.slice(0, -1), `${text}}`, `[${text}]`, '', 'null', '"text"', '7', '\u0000'];
  yield textOf({ ...message, [NAME]: { [LONG]: [NAME] }, extra: 'DEEP' });
  for (const path of pathsOf(message)) {
    for (const value of VALUES) {
      yield changed(message, path, (object, name) => (object[name] = value));
    }
    yield changed(message, path, (object, name) => delete object[name]);
  }
}

// Session descriptions with one invalid line: left out, cut, repeated, with huge numbers or strange
// characters.
export function* hostileDescriptions(sdp) {
  const all = sdp.split('\r\n').slice(0, -1);
  const forms = [
    () => [],
    (line) => [line.slice(0, Math.ceil(line.length / 2))],
    (line) => [line, line],
    (line) => [line.replace(/\d+/g, '99999999999999999999')],
    (line) => [line.replace(/[=:].*/, `$&${LONG.slice(0, 10_000)}`)],
    (line) => [`${line.slice(0, 2)}\u0001\u202e%n%s`],
  ];
  for (const [index, line] of all.entries()) {
    for (const form of forms) {
      yield [...all.slice(0, index), ...form(line), ...all.slice(index + 1), ''].join('\r\n');
    }
  }
  yield* ['', 'v=0', sdp.replaceAll('\r\n', '\n'), sdp.replaceAll('\r\n', ''), sdp.repeat(100)];
}
