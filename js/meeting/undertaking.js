'use strict';

// An operation that the engine begins and ends on request, and reports with statuses: `begun`, one
// of `refused`, or `over`. It is known to be over only when every request to begin was answered,
// including those that the application no longer waits for.
class Undertaking {
  #statuses;
  #isUnderWay = false;
  #questions = []; // unanswered requests, the oldest first: 'begin' or 'end'

  constructor(statuses) {
    this.#statuses = statuses;
  }

  get statuses() {
    return this.#statuses;
  }

  // The operation is active, or may become active.
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
      // Answers the oldest request for the end, and the requests before it.
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
