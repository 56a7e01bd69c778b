'use strict';

// The registration of the engine's event. The largest number of seconds that the engine takes outlasts
// the meeting.
const EVENT = 'participants';
const REGISTRATION = {
  eventName: EVENT,
  expires: 2 ** 31 - 1,
  mimeType: 'application',
  mimeSubType: 'json',
};

// The list in the body of the engine's event, frozen, since the meeting hands it out; undefined for
// any other text.
function participantsIn(body) {
  try {
    const { participants } = JSON.parse(body, (_key, value) => Object.freeze(value));
    return Array.isArray(participants) ? participants : undefined;
  } catch {
    return undefined;
  }
}

// The meeting's participants by the engine's latest event. Emits 'participants' after each one.
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
