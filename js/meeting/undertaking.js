'use strict';

// Something that the engine begins and ends when it is asked to, and answers with statuses: `begun`,
// one of `refused`, or `over`. It is known to be over only when no question to begin is unanswered,
// also none that the application has given up waiting for.
class Undertaking {
  #statuses;
  #isUnderWay = false;
  #questions = []; // unanswered ones, the oldest first: 'begin' or 'end'

  constructor(statuses) {
    this.#statuses = statuses;
  }

  get statuses() {
    return this.#statuses;
  }

  // The engine does it, or may do it yet.
  get isPossible() {
    return this.#isUnderWay || this.#questions.includes('begin');
  }

  ask(question) {
    this.#questions.push(question);
  }

  hear(status) {
    const { begun, refused, over } = this.#statuses;
    const isBegun = status === begun;
    if (isBegun || refused.includes(status)) {
      if (isBegun) this.#isUnderWay = true;
      const answered = this.#questions.indexOf('begin');
      if (answered >= 0) this.#questions.splice(answered, 1);
    } else if (status === over) {
      this.#isUnderWay = false;
      // An answer to the question before it that asked for the end, and to those before that.
      this.#questions.splice(0, this.#questions.indexOf('end') + 1);
    }
    if (!this.isPossible) this.#questions = [];
  }

  // The call has ended, and this with it.
  forget() {
    this.#isUnderWay = false;
    this.#questions = [];
  }
}

module.exports = { Undertaking };
