// Keeps the widget process running: starts it, starts another one in its place when it is killed, and
// tells the room which streams have a window.

import { fork } from 'node:child_process';
import { fileURLToPath } from 'node:url';

const PROGRAM = fileURLToPath(new URL('widget_process.mjs', import.meta.url));

export class WidgetHost {
  #room;
  #process;
  #place = {}; // port and token, which its successor takes over: windows find it again
  #isClosing = false;

  constructor(room) {
    this.#room = room;
    room.on('windowLeft', (stream) => this.#say({ type: 'hide', stream }));
    this.#start();
  }

  get pid() {
    return this.#process.pid;
  }

  // Ends the process.
  close() {
    this.#isClosing = true;
    this.#process.disconnect();
  }

  #start() {
    // What the addon prints there would be in the way of the address.
    this.#process = fork(PROGRAM, { stdio: ['ignore', 'ignore', 'inherit', 'ipc'] });
    this.#process.on('message', (message) => this.#onMessage[message.type](message));
    this.#process.on('exit', (code, signal) => this.#onExit(code, signal));
    this.#say({ type: 'start', sharedDataInfo: this.#room.sharedDataInfo, ...this.#place });
    this.#room.note('widgetStarted', { pid: this.#process.pid });
  }

  #say(message) {
    if (this.#process.connected) this.#process.send(message);
  }

  #onMessage = {
    listening: ({ port, token, address }) => {
      this.#place = { port, token };
      this.#room.setWidget('running', address);
    },
    shown: ({ stream, height }) => this.#room.enterWindow(stream, height),
    closed: ({ stream }) => this.#room.leaveWindow(stream),
  };

  async #onExit(code, signal) {
    if (this.#isClosing) return;
    this.#room.note('widgetEnded', { code, signal });
    if (signal === null) {
      // It has taken the names of the shared memory with it: no other process can open them.
      this.#room.setWidget('ended', '');
      return;
    }
    this.#room.setWidget('starting', '');
    this.#start();
    await this.#room.renewWindows();
  }
}
