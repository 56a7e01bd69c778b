// Follows a stream through shared memory.

// The largest number of frames by which one poll advances.
const CATCH_UP = 10_000;

export class SharedStream {
  #proxy;
  #stream;
  #sequence = 0;
  #counter;
  #size = '';

  constructor(proxy, stream, counter) {
    this.#proxy = proxy;
    this.#stream = stream;
    this.#counter = counter;
  }

  // Every frame has a sequence number, which a reader does not get: it can only find out whether a
  // given number is the frame's. So it counts up until the number matches.
  poll() {
    let isFresh = false;
    for (let step = 0; step < CATCH_UP && this.#isUpdate(); step++) {
      this.#sequence += 1;
      isFresh = true;
    }
    if (isFresh) this.#counter.count();
  }

  // Each request locks the segment until the release, even when there is no new frame.
  #isUpdate() {
    const { noUpdate, width, height } = this.#proxy.getFrame(this.#stream, this.#sequence);
    if (!noUpdate) this.#size = `${width}x${height}`;
    this.#proxy.releaseFrame(this.#stream);
    return !noUpdate;
  }

  get size() {
    return this.#size;
  }
}
