// What a Janus server tells its administrator about the media that it relays.

import { once } from 'node:events';

import { WebSocket } from 'ws';

import { freePort, ownAddress } from '../../examples/sfu/janus_server.mjs';
import { startServer } from './webrtc_room.mjs';

class JanusMonitor {
  #socket;
  #secret;
  #answers = new Map();
  #asked = 0;

  static async connect(test, { port, secret }) {
    const monitor = new JanusMonitor();
    monitor.#secret = secret;
    monitor.#socket = new WebSocket(`ws://${ownAddress()}:${port}/`, 'janus-admin-protocol');
    monitor.#socket.on('message', (text) => {
      const message = JSON.parse(text);
      monitor.#answers.get(message.transaction)?.(message);
    });
    await once(monitor.#socket, 'open');
    test.after(() => monitor.#socket.terminate());
    return monitor;
  }

  async #ask(janus, ids) {
    const transaction = `${++this.#asked}`;
    const answered = new Promise((resolve) => this.#answers.set(transaction, resolve));
    this.#socket.send(JSON.stringify({ janus, transaction, admin_secret: this.#secret, ...ids }));
    const answer = await answered;
    if (answer.error) throw new Error(answer.error.reason);
    return answer;
  }

  // The handles of this kind, "publisher" or "subscriber", whose media are those of who is called
  // `display` in the room.
  async #handles(kind, display) {
    const found = [];
    const { sessions } = await this.#ask('list_sessions');
    for (const session_id of sessions) {
      const { handles } = await this.#ask('list_handles', { session_id });
      for (const handle_id of handles) {
        const { info } = await this.#ask('handle_info', { session_id, handle_id });
        const { type, display: own, streams = [] } = info.plugin_specific;
        const names = type === 'publisher' ? [own] : streams.map((each) => each.feed_display);
        if (type === kind && names.includes(display)) found.push(info);
      }
    }
    return found;
  }

  async #count(kind, display, medium, direction) {
    const handles = await this.#handles(kind, display);
    if (handles.length !== 1) throw new Error(`${handles.length} handles of ${display}`);
    const [{ webrtc, current_time: microseconds }] = handles;
    const { stats } = Object.values(webrtc.media).find(({ type }) => type === medium);
    return { bytes: stats[direction].bytes, seconds: microseconds / 1e6 };
  }

  // How many bytes of `display`'s "audio" or "video" the server has had from `display`, and when.
  received(display, medium) {
    return this.#count('publisher', display, medium, 'in');
  }

  // How many it has passed on to the only one who subscribed to them.
  passedOn(display, medium) {
    return this.#count('subscriber', display, medium, 'out');
  }
}

// A server that ends with the test, and its monitor.
export async function startMonitoredServer(test, options) {
  const administration = { port: await freePort(ownAddress()), secret: crypto.randomUUID() };
  const server = await startServer(test, { ...options, administration });
  return { server, monitor: await JanusMonitor.connect(test, administration) };
}
