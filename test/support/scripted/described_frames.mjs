// Descriptions of frames that can be sent between processes: the content of their pixels, and a
// checksum.

import { createHash } from 'node:crypto';

import { readCard } from '../card_code.mjs';
import { frameIdentity, isWholeFrame, patternBytes } from './frame_pattern.mjs';

function checksum(...planes) {
  const hash = createHash('sha256');
  for (const plane of planes) hash.update(plane);
  return hash.digest('hex');
}

const planesOf = (frame) => [frame.yPlaneBuffer, frame.uPlaneBuffer, frame.vPlaneBuffer];

function describe(frame, pixels) {
  const { noUpdate, csrc, width, height } = frame;
  if (noUpdate) return { noUpdate, csrc };
  if (width * height === 0) {
    return {
      csrc,
      width,
      height,
      pixels: planesOf(frame).reduce((n, { length }) => n + length, 0),
    };
  }
  return { csrc, width, height, ...pixels(frame), checksum: checksum(...planesOf(frame)) };
}

// A frame of the scripted engine.
export const describePattern = (frame) =>
  describe(frame, () => ({
    ...frameIdentity(frame.yPlaneBuffer),
    whole: isWholeFrame(...planesOf(frame)),
  }));

// A frame of the embedded engine.
export const describeCard = (frame) =>
  describe(frame, () => {
    const { type, streamIndex, number } = readCard(frame);
    return { type, streamIndex, number };
  });

// What describePattern says of frame `number` of a remote stream as the engine made it.
export function remotePattern(index, { number, width, height, csrc = 0 }) {
  const half = (length) => Math.ceil(length / 2);
  const identity = { kind: 1, index, number };
  const bytes = patternBytes(identity, width * height + 2 * half(width) * half(height));
  return { csrc, width, height, ...identity, whole: true, checksum: checksum(bytes) };
}
