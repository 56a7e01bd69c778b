// Sends one stream to a page, with back-pressure: a frame may be sent when the previous one was
// transmitted and the page has reported that it has drawn it. So each stream has one frame in
// transit and one buffer, however slow the page is.

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

  // Resolves when a frame may be sent; rejects when `signal` is aborted.
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

  // The page has drawn the last frame.
  drawn() {
    this.#isDrawn = true;
    this.#tell();
  }

  #tell() {
    if (this.isFree) this.#progress.emit('free');
  }
}
