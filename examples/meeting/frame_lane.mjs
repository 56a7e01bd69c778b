// One stream's way to a page, with back-pressure: a frame may be sent when the one before it has
// been transmitted and the page says that it has drawn it. So there is one frame on the way and one
// piece of memory for each stream, however slow the page.

import { EventEmitter, once } from 'node:events';

import { encodeFrame } from './frame_message.mjs';

export class FrameLane {
  #socket;
  #stream;
  #progress = new EventEmitter(); // 'free'
  #isTransmitted = true;
  #isDrawn = true;
  #memory;
  framesSent = 0;

  constructor(socket, stream) {
    this.#socket = socket;
    this.#stream = stream;
  }

  get isFree() {
    return this.#isTransmitted && this.#isDrawn;
  }

  // Settles when a frame may be sent; rejects when `signal` is aborted.
  async free(signal) {
    if (!this.isFree) await once(this.#progress, 'free', { signal });
  }

  // Sends a frame object, whose planes are copied before this returns.
  send(frame) {
    const message = encodeFrame(this.#stream, frame, this.#memory);
    this.#memory = message.buffer;
    this.#isTransmitted = false;
    this.#isDrawn = false;
    this.framesSent += 1;
    this.#socket.send(message, () => {
      this.#isTransmitted = true;
      this.#tell();
    });
  }

  // The page has drawn what was sent last.
  drawn() {
    this.#isDrawn = true;
    this.#tell();
  }

  #tell() {
    if (this.isFree) this.#progress.emit('free');
  }
}
