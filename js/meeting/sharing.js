'use strict';

const { CallError, ShareError } = require('../errors.js');
const { shareParams } = require('./parameters.js');
const { Undertaking } = require('./undertaking.js');
const { endOrClosing, limitsOf } = require('./waits.js');

// The statuses that answer requests about sharing.
const PRESENTATION = { begun: 'started', refused: ['failed', 'denied'], over: 'stopped' };
const TOKEN = { begun: 'token_granted', refused: ['token_denied'], over: 'token_relinquished' };

// The content sharing of a meeting: the token and the presentation.
class Sharing {
  #wrapper;
  #waits;
  #presentation = new Undertaking(PRESENTATION);
  #token = new Undertaking(TOKEN);

  constructor(wrapper, waits) {
    this.#wrapper = wrapper;
    this.#waits = waits;
  }

  follow(event, payload) {
    for (const undertaking of [this.#presentation, this.#token]) {
      if (event === 'screenShareStatus') undertaking.hear(payload.status);
      else if (event === 'callDisconnect') undertaking.forget();
    }
  }

  requestToken(options) {
    return this.#begin(this.#token, 'requestContentShareToken', [], options);
  }

  releaseToken(options) {
    return this.#end(this.#token, 'releaseContentShareToken', options);
  }

  async startPresentation(params, options) {
    const record = shareParams(params);
    return this.#begin(this.#presentation, 'startPresentation', [record], options);
  }

  stopPresentation(options) {
    return this.#end(this.#presentation, 'stopPresentation', options);
  }

  async #begin(undertaking, operation, args, options) {
    const limits = limitsOf(options, operation);
    const { begun, refused } = undertaking.statuses;
    const judge = ({ status }, resolve, reject) => {
      if (status === begun) resolve();
      else if (refused.includes(status)) reject(new ShareError(operation, args, status));
    };
    const ask = () => {
      this.#wrapper[operation](...args);
      undertaking.ask('begin');
    };
    await this.#answer(operation, judge, ask, limits);
  }

  async #end(undertaking, operation, options) {
    const limits = limitsOf(options, operation);
    const judge = ({ status }, resolve) => {
      if (status === undertaking.statuses.over || !undertaking.isPossible) resolve();
    };
    const ask = () => {
      this.#wrapper[operation]();
      undertaking.ask('end');
    };
    this.#waits.requireBeginning(limits);
    if (undertaking.isPossible) await endOrClosing(this.#answer(operation, judge, ask, limits));
  }

  // Requests an operation that is answered by a screenShareStatus or by the end of the call.
  #answer(operation, judgeStatus, ask, limits) {
    const judge = (name, payload, resolve, reject) => {
      if (name === 'callDisconnect') reject(new CallError(payload));
      else judgeStatus(payload, resolve, reject);
    };
    return this.#waits.until(['screenShareStatus', 'callDisconnect'], judge, limits, {
      ask,
      tooLate: `${operation} took longer than`,
    });
  }
}

module.exports = { Sharing };
