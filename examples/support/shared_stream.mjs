// Follows a stream through shared memory.

// The most frames that a poll catches up with.
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

  // Every frame carries a sequence number. A reader is not told it; it learns whether the number
  // that it gives is the frame's. So counting on until it is tells what the writer has stored
  // meanwhile.
  poll() {
    let isFresh = false;
    for (let step = 0; step < CATCH_UP && this.#isUpdate(); step++) {
      this.#sequence += 1;
      isFresh = true;
    }
    if (isFresh) this.#counter.count();
  }

  // Each look locks the segment until the release, also when there is nothing new.
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
