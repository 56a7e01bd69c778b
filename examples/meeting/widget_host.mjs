// Keeps the widget process running: starts it, replaces it when it is killed, and tells the room
// which streams have a window. Failures are written to the room's log.

import { fork } from 'node:child_process';
import { fileURLToPath } from 'node:url';

const PROGRAM = fileURLToPath(new URL('widget_process.mjs', import.meta.url));

export class WidgetHost {
  #room;
  #process;
  #hasListened; // the process has, so that another one in its place will
  #place = {}; // port and token, which its successor takes over: windows find it again
  #isClosing = false;

  constructor(room) {
    this.#room = room;
    room.on('windowLeft', (stream) => this.#say({ type: 'hide', stream }));
    room.on('windowBlank', (stream, isBlank) => this.#say({ type: 'blank', stream, isBlank }));
    this.#start();
  }

  get pid() {
    return this.#process.pid;
  }

  // Ends the process.
  close() {
    this.#isClosing = true;
    if (this.#process.connected) this.#process.disconnect();
  }

  #start() {
    this.#hasListened = false;
    // The addon's lines would hide the address on the terminal.
    this.#process = fork(PROGRAM, { stdio: ['ignore', 'ignore', 'inherit', 'ipc'] });
    this.#process.on('message', (message) =>
      this.#guard(() => this.#onMessage[message.type](message)),
    );
    this.#process.on('exit', (code, signal) => this.#guard(() => this.#onExit(code, signal)));
    this.#process.on('error', (error) => this.#onError(error));
    this.#say({ type: 'start', sharedDataInfo: this.#room.sharedDataInfo, ...this.#place });
    this.#room.note('widgetStarted', { pid: this.#process.pid });
  }

  #say(message) {
    if (this.#process.connected) this.#process.send(message);
  }

  #onMessage = {
    listening: ({ port, token, address }) => {
      this.#hasListened = true;
      this.#place = { port, token };
      this.#room.setWidget('running', address);
      this.#room.note('widgetListening', { pid: this.#process.pid });
    },
    failed: ({ message }) => this.#note({ message: `The widget process: ${message}` }),
    shown: ({ stream, height }) => this.#room.enterWindow(stream, height),
    closed: ({ stream }) => this.#room.leaveWindow(stream),
  };

  async #guard(act) {
    try {
      await act();
    } catch (error) {
      this.#note(error);
    }
  }

  #note({ message }) {
    this.#room.note('error', { message });
  }

  // It could not be started, or its channel is closed, after which it exits.
  #onError(error) {
    this.#note(error);
    if (this.pid === undefined) this.#giveUp();
  }

  async #onExit(code, signal) {
    if (this.#isClosing) return;
    this.#room.note('widgetEnded', { code, signal });
    // A process that has ended by itself has removed the names of the shared memory, so no other
    // process can open it. One that was killed before it was ready would be killed again.
    if (signal === null || !this.#hasListened) {
      this.#giveUp();
      return;
    }
    this.#room.setWidget('starting', '');
    this.#start();
    await this.#room.renewWindows();
  }

  #giveUp() {
    this.#room.setWidget('ended', '');
    this.#room.leaveWindows();
  }
}
