// Asks a Janus server's room plugin for what only its administrator may do.

import { once } from 'node:events';

import { WebSocket } from 'ws';

const PLUGIN = 'janus.plugin.videoroom';

export class JanusAdministrator {
  #socket;
  #answers = new Map();
  #asked = 0;
  #ids = {};

  static async connect(test, server) {
    const administrator = new JanusAdministrator();
    await administrator.#open(`ws://${server.authority}/`);
    test.after(() => administrator.#socket.terminate());
    return administrator;
  }

  async #open(url) {
    this.#socket = new WebSocket(url, 'janus-protocol');
    this.#socket.on('message', (text) => {
      const message = JSON.parse(text);
      const resolve = this.#answers.get(message.transaction);
      if (message.janus !== 'ack') resolve?.(message);
    });
    await once(this.#socket, 'open');
    const session = await this.#send({ janus: 'create' });
    this.#ids.session_id = session.data.id;
    const handle = await this.#send({ janus: 'attach', plugin: PLUGIN });
    this.#ids.handle_id = handle.data.id;
  }

  #send(message) {
    const transaction = `${++this.#asked}`;
    this.#socket.send(JSON.stringify({ ...message, ...this.#ids, transaction }));
    return new Promise((resolve) => this.#answers.set(transaction, resolve));
  }

  // Settles with what the plugin answers; rejects with the error that it answers.
  async ask(body) {
    const { plugindata } = await this.#send({ janus: 'message', body });
    const { data } = plugindata;
    if (data.error) throw new Error(data.error);
    return data;
  }
}
