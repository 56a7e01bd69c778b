// Reads the machine-readable corner of the embedded engine's test cards: three rows of 24 square
// blocks at the top left of the Y plane, most significant bit first. See docs/embedded-engine.md.

const ROWS = 3;
const COLUMNS = 24;
const LIGHT = 126; // the least luminance of a 1
const CHECK = 0xa5;

const KINDS = ['local', 'remote', 'content'];

const blockSide = ({ width, height }) =>
  Math.max(2, Math.min(Math.floor(width / 32), Math.floor(height / 24)));

// { type, streamIndex, number, detail } of a frame object with a picture; null when the picture is
// no test card. The card may have been drawn in another size than the frame's.
export function readCard(frame, drawn = frame) {
  const { width, yPlaneBuffer: luma, yPlaneBufferStride: stride } = frame;
  const side = (blockSide(drawn) * width) / drawn.width;
  const middle = side / 2;
  const bytes = new Uint8Array((ROWS * COLUMNS) / 8);
  for (let bit = 0; bit < ROWS * COLUMNS; bit++) {
    const row = Math.floor(Math.floor(bit / COLUMNS) * side + middle);
    const column = Math.floor((bit % COLUMNS) * side + middle);
    if (luma[row * stride + column] >= LIGHT) bytes[bit >> 3] |= 0x80 >> (bit % 8);
  }
  const check = bytes.subarray(0, 8).reduce((sum, byte) => sum ^ byte, CHECK);
  if (check !== bytes[8]) return null;
  const view = new DataView(bytes.buffer);
  return {
    type: KINDS[bytes[0] >> 6],
    streamIndex: bytes[0] & 0x3f,
    number: view.getUint32(1),
    detail: view.getUint32(5) >>> 8,
  };
}
