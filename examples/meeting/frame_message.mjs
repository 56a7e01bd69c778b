// The format of a frame that is sent to a page: a header of 40 bytes, little-endian, and the three
// planes unchanged, with their strides. A frame that clears the picture has the size 0x0 and no
// planes. Used by both sides.

const HEADER_SIZE = 40;
const KINDS = ['local', 'remote', 'content'];
const PLANES = ['y', 'u', 'v'];

// The message for a frame object. Written into `memory` if that is large enough, so that a stream
// of frames needs no new memory; otherwise into a new buffer. Pass the `buffer` of the result as
// `memory` the next time.
export function encodeFrame({ type, streamIndex }, frame, memory) {
  const planes = frame.noUpdate ? [] : PLANES.map((plane) => frame[`${plane}PlaneBuffer`]);
  const size = planes.reduce((sum, plane) => sum + plane.length, HEADER_SIZE);
  const bytes = memory?.byteLength >= size ? new Uint8Array(memory, 0, size) : new Uint8Array(size);
  bytes.fill(0, 0, HEADER_SIZE);
  const view = new DataView(bytes.buffer);
  view.setUint8(0, KINDS.indexOf(type));
  view.setUint8(1, streamIndex);
  if (planes.length > 0) {
    view.setUint32(4, frame.width, true);
    view.setUint32(8, frame.height, true);
  }
  let offset = HEADER_SIZE;
  planes.forEach((plane, index) => {
    view.setUint32(16 + 4 * index, frame[`${PLANES[index]}PlaneBufferStride`], true);
    view.setUint32(28 + 4 * index, plane.length, true);
    bytes.set(plane, offset);
    offset += plane.length;
  });
  return bytes;
}

// { stream, frame } of a message's ArrayBuffer. The frame's planes are views of it; the frame is
// null when the picture is cleared.
export function decodeFrame(buffer) {
  const view = new DataView(buffer);
  const stream = { type: KINDS[view.getUint8(0)], streamIndex: view.getUint8(1) };
  const frame = { width: view.getUint32(4, true), height: view.getUint32(8, true) };
  if (frame.width === 0) return { stream, frame: null };
  let offset = HEADER_SIZE;
  PLANES.forEach((plane, index) => {
    const size = view.getUint32(28 + 4 * index, true);
    frame[`${plane}PlaneBuffer`] = new Uint8Array(buffer, offset, size);
    frame[`${plane}PlaneBufferStride`] = view.getUint32(16 + 4 * index, true);
    offset += size;
  });
  return { stream, frame };
}
