// Sends state to a page as JSON, with back-pressure: one message is in transit at a time, and newer
// state is merged into the next one, so that a page that does not read costs no memory.

// Log entries that wait for a slow page; older ones are dropped.
const MOST_LOG_ENTRIES = 200;

export class SpeakingTube {
  #socket;
  #words = {}; // what the next message says
  #isTalking = false;
  messagesSent = 0;

  constructor(socket) {
    this.#socket = socket;
  }

  // Sends `words`, an object. Unsent values of the same keys are replaced.
  say(words) {
    Object.assign(this.#words, words);
    this.#talk();
  }

  // Sends new log entries.
  sayLog(entries) {
    this.say({ log: [...(this.#words.log ?? []), ...entries].slice(-MOST_LOG_ENTRIES) });
  }

  #talk() {
    if (this.#isTalking || Object.keys(this.#words).length === 0) return;
    const text = JSON.stringify(this.#words);
    this.#words = {};
    this.#isTalking = true;
    this.messagesSent += 1;
    this.#socket.send(text, (error) => {
      this.#isTalking = false;
      if (!error) this.#talk();
    });
  }
}
