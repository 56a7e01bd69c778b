// The page's line to the process that serves it: words and frames come as events, wishes go out.
// Whenever the line breaks it is taken up again, unless the process has ended it on purpose.

import { decodeFrame } from '../frame_message.mjs';
import { nameOf } from '../stream_names.mjs';

const RETRY_MS = 300;
const ENDED_ON_PURPOSE = 1000;

// Events: 'open'; 'words' with the object in `detail`; 'frame' with { name, frame }; 'closed', and
// 'ended' with the reason.
export class Connection extends EventTarget {
  #socket;

  constructor() {
    super();
    this.#open();
  }

  send(type, wish = {}) {
    if (this.#socket.readyState === WebSocket.OPEN) {
      this.#socket.send(JSON.stringify({ type, ...wish }));
    }
  }

  #open() {
    const address = new URL('socket', location.href);
    address.protocol = 'ws:';
    address.hash = '';
    this.#socket = new WebSocket(address);
    this.#socket.binaryType = 'arraybuffer';
    this.#socket.addEventListener('open', () => this.#tell('open'));
    this.#socket.addEventListener('message', ({ data }) => {
      if (typeof data === 'string') {
        this.#tell('words', JSON.parse(data));
      } else {
        const { stream, frame } = decodeFrame(data);
        this.#tell('frame', { name: nameOf(stream), frame });
      }
    });
    this.#socket.addEventListener('close', ({ code, reason }) => {
      if (code === ENDED_ON_PURPOSE) {
        this.#tell('ended', reason);
      } else {
        this.#tell('closed');
        setTimeout(() => this.#open(), RETRY_MS);
      }
    });
  }

  #tell(type, detail) {
    this.dispatchEvent(new CustomEvent(type, { detail }));
  }
}
