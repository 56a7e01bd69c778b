// Sends state to a page as JSON, with back-pressure: one message is in transit at a time, and newer
// state is merged into the next one, so that a page that does not read costs no memory.

// Log entries that wait for a slow page; older ones are dropped.
const MOST_LOG_ENTRIES = 200;

export class StateSender {
  #socket;
  #words = {}; // what the next message says
  #isSending = false;
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
    if (this.#isSending || Object.keys(this.#words).length === 0) return;
    const text = JSON.stringify(this.#words);
    this.#words = {};
    this.#isSending = true;
    this.messagesSent += 1;
    this.#socket.send(text, (error) => {
      this.#isSending = false;
      if (!error) this.#talk();
    });
  }
}
