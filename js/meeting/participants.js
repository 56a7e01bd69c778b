'use strict';

// The engine's event, which the meeting subscribes to for itself. It lasts as long as the engine:
// the number is the largest that the engine takes, in seconds.
const EVENT = 'participants';
const REGISTRATION = {
  eventName: EVENT,
  expires: 2 ** 31 - 1,
  mimeType: 'application',
  mimeSubType: 'json',
};

// The list in the body of the engine's event; undefined when there is none.
function participantsIn(body) {
  try {
    const { participants } = JSON.parse(body);
    return Array.isArray(participants) ? participants : undefined;
  } catch {
    return undefined;
  }
}

// Who is in the meeting, as the engine told last. Emits 'participants' at each change.
class Participants {
  #emitter;
  #all = [];

  constructor(emitter) {
    this.#emitter = emitter;
  }

  get all() {
    return this.#all;
  }

  subscribe(wrapper) {
    wrapper.registerEvent(REGISTRATION);
  }

  follow(event, payload) {
    if (event !== 'eventNotify' || payload.eventName !== EVENT) return;
    const told = participantsIn(payload.eventBody);
    if (told === undefined) return;
    this.#all = told;
    this.#emitter.emit(EVENT, told);
  }
}

module.exports = { Participants };
