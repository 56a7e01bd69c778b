// The main process's side of a widget in a second process.

import { fork } from 'node:child_process';
import { once } from 'node:events';
import { fileURLToPath } from 'node:url';

const PROGRAM = fileURLToPath(new URL('../widget.mjs', import.meta.url));

export class WidgetChild {
  #child = fork(PROGRAM);
  #ended = once(this.#child, 'exit');

  // Resolves when a widget reads the stream. `names` are those of the main segment, from
  // getSharedDataInfo().
  static async start(names, stream) {
    const widget = new WidgetChild();
    await widget.#ask({ names, stream });
    return widget;
  }

  // Resolves with the widget's row of the table when its process has ended.
  async stop() {
    const row = await this.#ask('enough');
    await this.#ended;
    return row;
  }

  // Resolves with the answer to a message.
  async #ask(message) {
    const answer = once(this.#child, 'message');
    this.#child.send(message);
    const [reply] = await Promise.race([
      answer,
      this.#ended.then(([code, signal]) => {
        throw new Error(`the widget ended early: ${signal ?? code}`);
      }),
    ]);
    return reply;
  }
}
