// The pattern that the scripted engine writes into the pixels of its frames.
//
// A frame's memory holds its planes one behind the other. Its first 16 bytes are the frame's
// identity; byte i of the rest is 7 * kind + 17 * index + 31 * number + i, modulo 256.

export const IDENTITY_SIZE = 16;

// { kind, index, number }: the stream's key and the frame's number, read from the first bytes of
// the Y plane.
export function frameIdentity(yPlane) {
  const view = new DataView(yPlane.buffer, yPlane.byteOffset, IDENTITY_SIZE);
  return {
    kind: view.getInt32(0, true),
    index: view.getInt32(4, true),
    number: Number(view.getBigUint64(8, true)),
  };
}

// What the frame's memory holds from `offset` on, as a Buffer of `length` bytes.
export function patternBytes({ kind, index, number }, length, offset = 0) {
  const seed = 7 * kind + 17 * index + 31 * number + offset;
  const bytes = Buffer.alloc(length);
  for (let i = 0; i < length; ++i) bytes[i] = (seed + i) & 0xff;
  if (offset === 0 && length >= IDENTITY_SIZE) {
    bytes.writeInt32LE(kind, 0);
    bytes.writeInt32LE(index, 4);
    bytes.writeBigUInt64LE(BigInt(number), 8);
  }
  return bytes;
}

// Whether the planes, in the order of their memory, hold one whole frame: each byte as the identity
// at their start says.
export function isWholeFrame(...planes) {
  const identity = frameIdentity(planes[0]);
  let offset = 0;
  for (const plane of planes) {
    if (Buffer.compare(plane, patternBytes(identity, plane.length, offset)) !== 0) return false;
    offset += plane.length;
  }
  return true;
}
