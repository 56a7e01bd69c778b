'use strict';

// The output of console.log for the package's objects: their state, instead of private members and
// thousands of bytes.

const { inspect } = require('node:util');

// The inspection text of an object: its kind and the `properties`. `depth` and `options` are the
// arguments that Node.js passes to an inspection function.
function summary(kind, properties, depth, options) {
  if (depth < 0) return options.stylize(`[${kind}]`, 'special');
  return `${kind} ${inspect(properties, { ...options, depth })}`;
}

function planeText(frame, name) {
  const { length } = frame[`${name}Buffer`];
  if (length < frame[`${name}BufferSize`]) return 'no longer valid';
  const [width, height, stride] = ['Width', 'Height', 'Stride'].map(
    (property) => frame[`${name}Buffer${property}`],
  );
  return `${width} x ${height}, stride ${stride}, ${length} bytes`;
}

function inspectFrame(depth, options) {
  if (this.noUpdate) return summary('ClearFrame', { ...this }, depth, options);
  const isPlane = (name) => /^[yuv]Plane/.test(name);
  const properties = Object.fromEntries(Object.entries(this).filter(([name]) => !isPlane(name)));
  for (const name of ['yPlane', 'uPlane', 'vPlane']) properties[name] = planeText(this, name);
  return summary('PictureFrame', properties, depth, options);
}

// Gives `frame` an inspection that shows the sizes of its planes, not their bytes.
function inspectable(frame) {
  return Object.defineProperty(frame, inspect.custom, { value: inspectFrame });
}

module.exports = { inspectable, summary };
