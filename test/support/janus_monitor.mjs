// Byte counts of the media that a Janus server relays, from its administration interface.

import { freePort, ownAddress } from '../../examples/sfu/janus_server.mjs';
import { JanusConnection } from './janus_connection.mjs';
import { LOCAL } from './streams.mjs';
import { startServer } from './webrtc_room.mjs';

class JanusMonitor {
  #connection;
  #secret;
  #room;

  // The same, of what is in this room only.
  in(room) {
    const monitor = new JanusMonitor();
    monitor.#connection = this.#connection;
    monitor.#secret = this.#secret;
    monitor.#room = room;
    return monitor;
  }

  static async connect(test, { port, secret }) {
    const monitor = new JanusMonitor();
    monitor.#secret = secret;
    const url = `ws://${ownAddress()}:${port}/`;
    monitor.#connection = await JanusConnection.open(test, url, 'janus-admin-protocol');
    return monitor;
  }

  #ask(janus, ids) {
    return this.#connection.ask({ janus, admin_secret: this.#secret, ...ids });
  }

  // The handles of this kind, "publisher" or "subscriber", for the media of the participant with this
  // display name.
  async #handles(kind, display) {
    const found = [];
    const { sessions } = await this.#ask('list_sessions');
    for (const session_id of sessions) {
      const { handles = [] } = await this.#askIfThere('list_handles', { session_id });
      for (const handle_id of handles) {
        const { info } = await this.#askIfThere('handle_info', { session_id, handle_id });
        const { type, room, display: own, streams = [] } = info?.plugin_specific ?? {};
        if (this.#room !== undefined && room !== this.#room) continue;
        const names = type === 'publisher' ? [own] : streams.map((each) => each.feed_display);
        if (type === kind && names.includes(display)) found.push(info);
      }
    }
    return found;
  }

  // Resolves to nothing about a session or a handle that has ended since it was listed.
  async #askIfThere(janus, ids) {
    try {
      return await this.#ask(janus, ids);
    } catch (error) {
      if (!/^No such (session|handle)/.test(error.message)) throw error;
      return {};
    }
  }

  // Waits for the handle and for its connection, which follow the join.
  async #handle(kind, display, medium) {
    for (;;) {
      const handles = await this.#handles(kind, display);
      if (handles.length > 1) throw new Error(`${handles.length} handles of ${display}`);
      const media = Object.values(handles[0]?.webrtc?.media ?? {});
      const found = media.find(({ type }) => type === medium);
      if (found) return { info: handles[0], found };
    }
  }

  async #medium(kind, display, medium) {
    const { info, found } = await this.#handle(kind, display, medium);
    return { ...found, seconds: info.current_time / 1e6 };
  }

  async #count(kind, display, medium, direction) {
    const { stats, seconds } = await this.#medium(kind, display, medium);
    // The layers of a video are counted one by one.
    const { bytes, ...others } = stats[direction];
    const layers = Object.values(others).map((layer) => layer.bytes ?? 0);
    return { bytes: [bytes, ...layers].reduce((sum, each) => sum + each), seconds };
  }

  // Ends the connection of the only handle of this kind for the media of the participant.
  async hangUp(kind, display) {
    const [{ session_id, handle_id }] = await this.#handles(kind, display);
    await this.#ask('hangup_webrtc', { session_id, handle_id });
  }

  // What the server itself has found out by RTCP of the medium that it receives from the participant,
  // of a video its highest layer.
  async reception(display, medium) {
    const { rtcp } = await this.#medium('publisher', display, medium);
    return rtcp.sim2 ?? rtcp.main;
  }

  // The bytes that the server has received of each layer of the participant's video, the lowest
  // first.
  async receivedLayers(display) {
    const { stats } = await this.#medium('publisher', display, 'video');
    const layers = [stats.in, stats.in['video-simulcast-1'], stats.in['video-simulcast-2']];
    return layers.map((layer) => layer?.bytes ?? 0);
  }

  // The layer of the participant's video that the only subscriber is sent, from 0 for the lowest.
  async passedOnLayer(display) {
    const { info } = await this.#handle('subscriber', display, 'video');
    const { simulcast } = info.plugin_specific.streams.find(({ type }) => type === 'video');
    return simulcast.substream;
  }

  // Of the medium as it is sent to the participant's only subscriber: how many milliseconds the way
  // there and back takes, 0 until the server has found out; and the SSRC of what is sent again.
  async passing(display, medium) {
    const { rtcp, ssrc } = await this.#medium('subscriber', display, medium);
    return { roundTrip: rtcp.main.rtt, repeatedSsrc: ssrc['ssrc-rtx'] };
  }

  // The bytes of "audio" or "video" that the server has received from the participant, and the time.
  received(display, medium) {
    return this.#count('publisher', display, medium, 'in');
  }

  // The same, sent to the participant's only subscriber.
  passedOn(display, medium) {
    return this.#count('subscriber', display, medium, 'out');
  }

  // Resolves when the server has sent none of these bytes for one second, which the pictures of
  // `member`'s own camera measure.
  async standsStill(display, medium, member) {
    for (let before; ;) {
      const { bytes } = await this.passedOn(display, medium);
      if (bytes === before) return;
      before = bytes;
      await member.does('pictures', LOCAL, 30);
    }
  }
}

// A server that stops when the test ends, and its monitor.
export async function startMonitoredServer(test, options) {
  const administration = { port: await freePort(ownAddress()), secret: crypto.randomUUID() };
  const server = await startServer(test, { ...options, administration });
  return { server, monitor: await JanusMonitor.connect(test, administration) };
}
