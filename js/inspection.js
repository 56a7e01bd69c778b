'use strict';

// What console.log shows of the face's objects: what one wants to know, instead of private parts and
// thousands of bytes.

const { inspect } = require('node:util');

// For the inspection of an object: its kind and what `properties` say of it. `depth` and `options`
// are those that node gives to an inspection.
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
