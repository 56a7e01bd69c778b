// Asks a Janus server's room plugin for what only its administrator may do.

import { JanusConnection } from './janus_connection.mjs';

const PLUGIN = 'janus.plugin.videoroom';

export class JanusAdministrator {
  #connection;
  #ids = {};

  static async connect(test, server) {
    const administrator = new JanusAdministrator();
    const url = `ws://${server.authority}/`;
    administrator.#connection = await JanusConnection.open(test, url, 'janus-protocol');
    await administrator.#attach();
    return administrator;
  }

  async #attach() {
    const session = await this.#connection.ask({ janus: 'create' });
    this.#ids.session_id = session.data.id;
    const message = { janus: 'attach', plugin: PLUGIN, ...this.#ids };
    const handle = await this.#connection.ask(message);
    this.#ids.handle_id = handle.data.id;
  }

  // Resolves with the plugin's answer; rejects with the error that it answers.
  async ask(body) {
    const message = { janus: 'message', body, ...this.#ids };
    const { plugindata } = await this.#connection.ask(message);
    const { data } = plugindata;
    if (data.error) throw new Error(data.error);
    return data;
  }
}
