// The page's connection to the process that serves it: messages and frames arrive as events,
// requests are sent. A lost connection is opened again, unless the process has closed it on
// purpose. Without an answer the delay grows with each attempt, and the number of attempts is
// limited.

import { decodeFrame } from '../frame_message.mjs';
import { nameOf } from '../stream_names.mjs';

const FIRST_RETRY_MS = 300;
const LAST_RETRY_MS = 5000;
const ENDED_ON_PURPOSE = 1000;

// Events: 'open'; 'words' with the object in `detail`; 'frame' with { name, frame }; 'closed',
// after which it retries; 'lost' when it does not retry any more, and 'ended' with the reason.
export class Connection extends EventTarget {
  #socket;
  #mostTries;
  #tries = 0; // since the line was open last

  // A lost connection is retried `mostTries` times.
  constructor({ mostTries }) {
    super();
    this.#mostTries = mostTries;
    this.#open();
  }

  send(type, request = {}) {
    if (this.#socket.readyState === WebSocket.OPEN) {
      this.#socket.send(JSON.stringify({ type, ...request }));
    }
  }

  #open() {
    const address = new URL('socket', location.href);
    address.protocol = 'ws:';
    address.hash = '';
    this.#socket = new WebSocket(address);
    this.#socket.binaryType = 'arraybuffer';
    this.#socket.addEventListener('open', () => {
      this.#tries = 0;
      this.#tell('open');
    });
    this.#socket.addEventListener('message', ({ data }) => {
      if (typeof data === 'string') {
        this.#tell('words', JSON.parse(data));
      } else {
        const { stream, frame } = decodeFrame(data);
        this.#tell('frame', { name: nameOf(stream), frame });
      }
    });
    this.#socket.addEventListener('close', ({ code, reason }) => {
      if (code === ENDED_ON_PURPOSE) this.#tell('ended', reason);
      else if (this.#tries === this.#mostTries) this.#tell('lost');
      else this.#tryAgain();
    });
  }

  #tryAgain() {
    const wait = Math.min(FIRST_RETRY_MS * 2 ** this.#tries, LAST_RETRY_MS);
    this.#tries += 1;
    setTimeout(() => this.#open(), wait);
    this.#tell('closed');
  }

  #tell(type, detail) {
    this.dispatchEvent(new CustomEvent(type, { detail }));
  }
}
