// Paints I420 pictures without WebGL: converts them to RGB here, into an image that is reused while
// the size of the pictures does not change.

export class CanvasPainter {
  #context;
  #range;
  #image;

  constructor(context, range) {
    this.#context = context;
    this.#range = range;
  }

  paint(width, height, planes) {
    const { canvas } = this.#context;
    if (this.#image?.width !== width || this.#image?.height !== height) {
      canvas.width = width;
      canvas.height = height;
      this.#image = this.#context.createImageData(width, height);
    }
    this.#convert(planes);
    this.#context.putImageData(this.#image, 0, 0);
  }

  clear() {
    const { canvas } = this.#context;
    this.#context.fillStyle = '#000';
    this.#context.fillRect(0, 0, canvas.width, canvas.height);
  }

  dispose() {
    this.#image = undefined;
  }

  #convert([luma, chromaU, chromaV]) {
    const { black, scale, redV, greenU, greenV, blueU } = this.#range;
    const { data } = this.#image; // clamps and rounds what is stored
    let pixel = 0;
    for (let row = 0; row < luma.height; row++) {
      const yRow = row * luma.stride;
      const uRow = (row >> 1) * chromaU.stride;
      const vRow = (row >> 1) * chromaV.stride;
      for (let column = 0; column < luma.width; column++, pixel += 4) {
        const y = scale * (luma.data[yRow + column] - black);
        const u = chromaU.data[uRow + (column >> 1)] - 128;
        const v = chromaV.data[vRow + (column >> 1)] - 128;
        data[pixel] = y + redV * v;
        data[pixel + 1] = y + greenU * u + greenV * v;
        data[pixel + 2] = y + blueU * u;
        data[pixel + 3] = 255;
      }
    }
  }
}
