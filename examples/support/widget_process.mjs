// A widget in a process of its own, seen from the main process.

import { fork } from 'node:child_process';
import { once } from 'node:events';
import { fileURLToPath } from 'node:url';

const PROGRAM = fileURLToPath(new URL('../widget.mjs', import.meta.url));

export class WidgetProcess {
  #child = fork(PROGRAM);
  #ended = once(this.#child, 'exit');

  // `names` are those of the main segment, from getSharedDataInfo().
  constructor(names, stream) {
    this.#child.send({ names, stream });
  }

  // Settles with the widget's row of the table when its process has ended.
  async stop() {
    const answer = once(this.#child, 'message');
    this.#child.send('enough');
    const [row] = await Promise.race([
      answer,
      this.#ended.then(([code, signal]) => {
        throw new Error(`the widget ended early: ${signal ?? code}`);
      }),
    ]);
    await this.#ended;
    return row;
  }
}
