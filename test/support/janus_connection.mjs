// A connection to a Janus server or to its administration: messages, each with its answer.

import { once } from 'node:events';

import { WebSocket } from 'ws';

export class JanusConnection {
  #socket;
  #answers = new Map();
  #asked = 0;

  // Open until the test ends.
  static async open(test, url, protocol) {
    const connection = new JanusConnection();
    connection.#socket = new WebSocket(url, protocol);
    connection.#socket.on('message', (text) => connection.#take(JSON.parse(text)));
    await once(connection.#socket, 'open');
    test.after(() => connection.#socket.terminate());
    return connection;
  }

  // An "ack" says that the answer will follow.
  #take(message) {
    if (message.janus !== 'ack') this.#answers.get(message.transaction)?.(message);
  }

  // Resolves with the answer; rejects with the server's error.
  async ask(message) {
    const transaction = `${++this.#asked}`;
    const answered = new Promise((resolve) => this.#answers.set(transaction, resolve));
    this.#socket.send(JSON.stringify({ ...message, transaction }));
    const answer = await answered;
    this.#answers.delete(transaction);
    if (answer.error) throw new Error(answer.error.reason);
    return answer;
  }
}
