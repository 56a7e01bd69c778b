// The connection of one page that shows the meeting: its state messages, its frames, and its
// requests. These are JSON, { type, ... }: 'drawn' with the `streams` whose last frames it has
// drawn, and the room's commands.

import { FrameLane } from './frame_lane.mjs';
import { StateSender } from './state_sender.mjs';
import { streamNamed } from './stream_names.mjs';

export class PageSession {
  #socket;
  #room;
  #sender;
  #feeds = new Map(); // { lane, stopping } by the stream's name
  #listeners;

  constructor(socket, room) {
    this.#socket = socket;
    this.#room = room;
    this.#sender = new StateSender(socket);
    this.#listeners = {
      change: () => this.#sender.say({ state: room.state }),
      levels: (levels) => this.#sender.say({ levels }),
      statistics: (statistics) => this.#sender.say({ statistics }),
      log: (entry) => this.#sender.sayLog([entry]),
    };
    for (const [event, listener] of Object.entries(this.#listeners)) room.on(event, listener);
    socket.on('error', () => socket.terminate());
    socket.on('close', () => this.#close());
    socket.on('message', (data) => this.#obey(data));

    this.#sender.say({ state: room.state, levels: room.levels, history: room.statistics });
    this.#sender.sayLog(room.log);
  }

  // The number of sent frames of each stream, by its name.
  get framesSent() {
    const counts = Array.from(this.#feeds, ([name, { lane }]) => [name, lane.framesSent]);
    return Object.fromEntries(counts);
  }

  get messagesSent() {
    return this.#sender.messagesSent;
  }

  // Ends the session because `reason`, which the page shows.
  end(reason) {
    this.#socket.close(1000, reason);
  }

  async #obey(data) {
    try {
      const { type, ...request } = JSON.parse(data);
      if (type === 'drawn') {
        for (const name of request.streams) this.#feeds.get(name)?.lane.drawn();
        return;
      }
      if (!Object.hasOwn(this.#room.commands, type))
        throw new TypeError(`unknown request: ${type}`);
      await this.#room.commands[type](request);
      if (type === 'layout') this.#feed(request.tiles.map(({ stream }) => stream));
    } catch (error) {
      this.#room.note('error', { message: error.message });
    }
  }

  // Sends the frames of the streams with these names from now on, and of no others.
  #feed(names) {
    for (const [name, { stopping }] of this.#feeds) if (!names.includes(name)) stopping.abort();
    for (const name of names) if (!this.#feeds.has(name)) this.#start(name);
  }

  async #start(name) {
    const stream = streamNamed(name);
    const lane = new FrameLane(this.#socket, stream);
    const stopping = new AbortController();
    const { signal } = stopping;
    signal.addEventListener('abort', () => this.#feeds.delete(name));
    this.#feeds.set(name, { lane, stopping });
    try {
      for await (const frame of this.#room.frames(stream, signal)) {
        lane.send(frame);
        await lane.free(signal);
      }
    } catch (error) {
      if (!signal.aborted) throw error;
    }
  }

  #close() {
    for (const [event, listener] of Object.entries(this.#listeners)) {
      this.#room.off(event, listener);
    }
    this.#feed([]);
  }
}
