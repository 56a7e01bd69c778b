'use strict';

// Copies of a frame, made while its planes are valid. Both functions fill the first bytes of a
// target, and return that part of it, or return a new array.

const { inspect } = require('node:util');
const { isUint8Array, isUint8ClampedArray } = require('node:util/types');

function requirePlanes(frame) {
  const { yPlaneBuffer, uPlaneBuffer, vPlaneBuffer } = frame ?? {};
  if (![yPlaneBuffer, uPlaneBuffer, vPlaneBuffer].every(ArrayBuffer.isView)) {
    throw new TypeError('The frame has no picture');
  }
  if (
    yPlaneBuffer.length < frame.yPlaneBufferSize ||
    uPlaneBuffer.length < frame.uPlaneBufferSize ||
    vPlaneBuffer.length < frame.vPlaneBufferSize
  ) {
    throw new Error('The planes of the frame are no longer valid: copy it before the next is read');
  }
}

// The first `size` bytes of `target`, as an array of its class.
function space(target, size) {
  if (!isUint8Array(target) && !isUint8ClampedArray(target)) {
    throw new TypeError(`target ${inspect(target)}: not a Uint8Array or Uint8ClampedArray`);
  }
  if (target.length < size) {
    throw new RangeError(`The target has ${target.length} bytes, the frame needs ${size}`);
  }
  return target.subarray(0, size);
}

// The planes Y, U and V of `frame` one after the other, with tightly packed rows.
function copyI420(frame, target) {
  requirePlanes(frame);
  const planes = ['y', 'u', 'v'].map((name) => ({
    bytes: frame[`${name}PlaneBuffer`],
    width: frame[`${name}PlaneBufferWidth`],
    height: frame[`${name}PlaneBufferHeight`],
    stride: frame[`${name}PlaneBufferStride`],
  }));
  const size = planes.reduce((sum, { width, height }) => sum + width * height, 0);
  const copy = target === undefined ? new Uint8Array(size) : space(target, size);
  let offset = 0;
  for (const { bytes, width, height, stride } of planes) {
    if (stride === width) {
      copy.set(bytes.subarray(0, width * height), offset);
    } else {
      for (let row = 0; row < height; row++) {
        copy.set(bytes.subarray(row * stride, row * stride + width), offset + row * width);
      }
    }
    offset += width * height;
  }
  return copy;
}

// The picture as red, green, blue and alpha bytes, row after row: BT.601, limited range, like the
// usual software codecs.
function copyRgba(frame, target) {
  requirePlanes(frame);
  const { width, height, yPlaneBuffer, uPlaneBuffer, vPlaneBuffer } = frame;
  const size = 4 * width * height;
  const copy = target === undefined ? new Uint8ClampedArray(size) : space(target, size);
  // It clamps what is stored in it, whatever the type of `target`.
  const rgba = new Uint8ClampedArray(copy.buffer, copy.byteOffset, size);
  let at = 0;
  for (let row = 0; row < height; row++) {
    const yRow = row * frame.yPlaneBufferStride;
    const uRow = (row >> 1) * frame.uPlaneBufferStride;
    const vRow = (row >> 1) * frame.vPlaneBufferStride;
    for (let column = 0; column < width; column++) {
      const y = 1.164 * (yPlaneBuffer[yRow + column] - 16);
      const u = uPlaneBuffer[uRow + (column >> 1)] - 128;
      const v = vPlaneBuffer[vRow + (column >> 1)] - 128;
      rgba[at++] = y + 1.596 * v;
      rgba[at++] = y - 0.392 * u - 0.813 * v;
      rgba[at++] = y + 2.017 * u;
      rgba[at++] = 255;
    }
  }
  return copy;
}

module.exports = { copyI420, copyRgba };
