// I420 pictures as the addon's frame objects have them, and the colours of their values.

// Rows and columns of a picture's chroma planes.
export const halfOf = (size) => (size + 1) >> 1;

// The three planes of `frame`, each { data, stride, width, height }. A plane that is shorter than
// its size and stride require is refused: the frame's owner may have detached it.
export function planesOf(frame) {
  const { width, height } = frame;
  if (!(Number.isInteger(width) && width > 0 && Number.isInteger(height) && height > 0)) {
    throw new RangeError(`a picture cannot be ${width}x${height}`);
  }
  const chroma = { width: halfOf(width), height: halfOf(height) };
  return [
    plane('y', frame.yPlaneBuffer, frame.yPlaneBufferStride, { width, height }),
    plane('u', frame.uPlaneBuffer, frame.uPlaneBufferStride, chroma),
    plane('v', frame.vPlaneBuffer, frame.vPlaneBufferStride, chroma),
  ];
}

function plane(name, data, stride, { width, height }) {
  if (!(stride >= width)) {
    throw new RangeError(`the ${name} plane's stride is ${stride}, its width ${width}`);
  }
  const needed = (height - 1) * stride + width;
  if (data.length < needed) {
    throw new RangeError(`the ${name} plane has ${data.length} bytes of ${needed}`);
  }
  return { data, stride, width, height };
}

// The conversion to RGB by BT.601, in units of 0 to 255:
//   red   = scale * (y - black) + redV * (v - 128)
//   green = scale * (y - black) + greenU * (u - 128) + greenV * (v - 128)
//   blue  = scale * (y - black) + blueU * (u - 128)
// Limited range has black at 16 and white at 235, full range at 0 and 255.
export const RANGES = {
  limited: {
    black: 16,
    scale: 255 / 219,
    redV: 1.596027,
    greenU: -0.391762,
    greenV: -0.812968,
    blueU: 2.017232,
  },
  full: { black: 0, scale: 1, redV: 1.402, greenU: -0.344136, greenV: -0.714136, blueU: 1.772 },
};
