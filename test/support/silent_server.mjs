// A server that accepts connections and never answers.

import { once } from 'node:events';
import { createServer } from 'node:net';

export class SilentServer {
  #server = createServer();

  // The connections so far.
  connections = [];

  // Runs until the test ends.
  static async start(test) {
    const silent = new SilentServer();
    const server = silent.#server;
    server.on('connection', (connection) => {
      silent.connections.push(connection);
      connection.on('error', () => {});
      connection.resume();
    });
    server.listen(0, '127.0.0.1');
    await once(server, 'listening');
    test.after(() => {
      server.close();
      for (const connection of silent.connections) connection.destroy();
    });
    return silent;
  }

  get port() {
    return this.#server.address().port;
  }

  // Settles when somebody has connected.
  async reached() {
    if (this.connections.length === 0) await once(this.#server, 'connection');
  }
}
