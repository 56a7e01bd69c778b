// Polls the frames of every stream of a meeting and counts them.

import { FrameCounter } from './frame_counter.mjs';
import { writePicture } from './picture.mjs';

// Twice the highest frame rate, so that no frame is overwritten between two polls.
const POLL_INTERVAL_MS = 1000 / 60;

// The frames of one stream.
class WatchedStream {
  #frameId = 0;

  constructor(stream) {
    this.stream = stream;
    this.counter = new FrameCounter();
    this.size = '';
  }

  get name() {
    return `${this.stream.type}-${this.stream.streamIndex}`;
  }

  poll(wrapper) {
    const frame = wrapper.getFrame(this.stream, this.#frameId);
    if (frame.noUpdate || frame.clearFrame) return;
    this.#frameId = frame.frameId;
    this.counter.count();
    this.size = `${frame.width}x${frame.height}`;
  }
}

export class StreamWatch {
  #wrapper;
  #streams = new Map();
  #timer;

  constructor(wrapper) {
    this.#wrapper = wrapper;
    this.#timer = setInterval(() => this.#pollAll(), POLL_INTERVAL_MS);
  }

  add({ type, streamIndex }) {
    const watched = new WatchedStream({ type, streamIndex });
    if (!this.#streams.has(watched.name)) this.#streams.set(watched.name, watched);
  }

  stop() {
    clearInterval(this.#timer);
  }

  // One row for each stream, as console.table shows them.
  table() {
    return [...this.#streams.values()].map((watched) => ({
      stream: watched.name,
      size: watched.size,
      ...watched.counter.columns,
    }));
  }

  // Writes the last frame of each stream that had one and returns the files' paths.
  writePictures(directory) {
    const files = [];
    for (const { name, stream } of this.#streams.values()) {
      const frame = this.#wrapper.getLastFrame(stream);
      if (frame.noUpdate) continue;
      const file = `${directory}/${name}.png`;
      writePicture(frame, file);
      files.push(file);
    }
    return files;
  }

  #pollAll() {
    for (const watched of this.#streams.values()) watched.poll(this.#wrapper);
  }
}
