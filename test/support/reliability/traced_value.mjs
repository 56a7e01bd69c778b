// Values that record the answers that they give when they are read.

import { types } from 'node:util';

// An array that is longer is left alone.
const MOST_ELEMENTS = 1000;

function tracedObject(original) {
  const readings = new Map();
  const value = new Proxy(original, {
    get(target, key) {
      const reading = traced(Reflect.get(target, key));
      const wasObject = readings.get(key)?.isObject;
      // What was an object when it was asked for its type is read as one, a number's say.
      const plain = wasObject ? () => Object(reading.plain()) : reading.plain;
      readings.set(key, { plain, isObject: wasObject || reading.isObject });
      return reading.value;
    },
  });
  return {
    value,
    isObject: true,
    plain: () => Object.fromEntries([...readings].map(([key, { plain }]) => [key, plain()])),
  };
}

// Where an array is wanted a Proxy of one does not do.
function tracedArray(original) {
  const readings = [];
  const value = [];
  for (let i = 0; i < original.length; ++i) {
    const get = () => {
      readings[i] = traced(original[i]);
      return readings[i].value;
    };
    Object.defineProperty(value, i, { get, configurable: true, enumerable: true });
  }
  return { value, isObject: true, plain: () => readings.map(({ plain }) => plain()) };
}

// { value, plain }: `value` stands in for `original`; plain() makes objects and arrays without any
// surprise of those properties and elements that were read, each with what it answered last.
export function traced(original) {
  const isObject = typeof original === 'object' && original !== null;
  const isArray = !types.isProxy(original) && Array.isArray(original);
  if (isArray && original.length <= MOST_ELEMENTS) return tracedArray(original);
  if ((isObject && !isArray) || typeof original === 'function') return tracedObject(original);
  return { value: original, isObject: isArray, plain: () => original };
}
