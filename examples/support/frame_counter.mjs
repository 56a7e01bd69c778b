// Counts frames.

export class FrameCounter {
  #first = 0;
  #last = 0;

  frames = 0;

  count() {
    this.#last = performance.now();
    this.#first ||= this.#last;
    this.frames += 1;
  }

  // Frames per second between the first and the last one; 0 for fewer than two.
  get rate() {
    const seconds = (this.#last - this.#first) / 1000;
    return seconds > 0 ? (this.frames - 1) / seconds : 0;
  }

  // The columns of a row of a table.
  get columns() {
    return { 'frames seen': this.frames, 'frames per second': Number(this.rate.toFixed(1)) };
  }
}
