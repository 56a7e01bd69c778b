// Changes that other scripts of an application may make to the objects that all scripts share.

const { defineProperty, getOwnPropertyDescriptor } = Object;

const BASICS = ['Array', 'ArrayBuffer', 'Boolean', 'Function', 'Number', 'Object', 'Promise'];
const GLOBALS = [...BASICS, 'Reflect', 'String', 'Symbol', 'TypeError', 'Uint8Array'];

// Puts something else in the place of the globals and makes every object inherit setters that
// swallow properties called `properties`; with `elements`, which Node's own code does not bear, so
// does every array those that swallow its first elements. Answers with a function that puts it all
// right again.
export function patchGlobals({ properties, elements = false }) {
  let restore = () => {};
  const patch = (object, name, property) => {
    const original = getOwnPropertyDescriptor(object, name);
    const restoreEarlier = restore;
    restore = () => {
      if (original) defineProperty(object, name, original);
      else delete object[name];
      restoreEarlier();
    };
    defineProperty(object, name, { configurable: true, ...property });
  };
  const refuse = () => {
    throw new RangeError('a patched global was used');
  };
  const swallow = { get: () => undefined, set: () => {} };

  for (const name of properties) patch(Object.prototype, name, swallow);
  for (let i = 0; elements && i < 4; ++i) patch(Array.prototype, i, swallow);
  for (const name of GLOBALS) patch(globalThis, name, { writable: true, value: refuse });
  return restore;
}

// Runs `work` in such surroundings.
export function withPatchedGlobals(patches, work) {
  const restore = patchGlobals(patches);
  try {
    return work();
  } finally {
    restore();
  }
}
