'use strict';

const { CallError } = require('../errors.js');
const { connectParams } = require('./parameters.js');
const { endOrClosing, limitsOf } = require('./waits.js');

// The call of a meeting: joining it and leaving it.
class Call {
  #wrapper;
  #waits;
  #state = 'none'; // then 'joining', 'joined' and 'leaving'

  constructor(wrapper, waits) {
    this.#wrapper = wrapper;
    this.#waits = waits;
  }

  get state() {
    return this.#state;
  }

  follow(event, payload) {
    if (event === 'callDisconnect') this.#state = 'none';
    else if (event === 'callConnectionStatus' && payload.connected && this.#state === 'joining') {
      this.#state = 'joined';
    }
  }

  async join(connection, options) {
    const params = connectParams(connection);
    const limits = limitsOf(options, 'join');
    let isAsked = false;
    // Waits for the end of the call that is being left.
    const ask = () => {
      if (this.#state === 'leaving') return;
      if (this.#state !== 'none')
        throw new Error('The meeting is in a call already: leave() it first');
      this.#wrapper.connectCall(params);
      this.#state = 'joining';
      isAsked = true;
    };
    const judge = (name, payload, resolve, reject) => {
      if (!isAsked) ask();
      else if (name === 'callDisconnect') reject(new CallError(payload));
      else if (payload.connected) resolve();
    };
    try {
      await this.#waits.until(['callConnectionStatus', 'callDisconnect'], judge, limits, {
        ask,
        tooLate: 'Joining took longer than',
      });
    } catch (error) {
      // The caller has aborted it: the engine must not join later.
      if (isAsked && this.#state === 'joining' && !this.#waits.isClosed) this.#disconnect();
      throw error;
    }
  }

  async leave(options) {
    const limits = limitsOf(options, 'leave');
    this.#waits.requireBeginning(limits);
    if (this.#state === 'none') {
      this.#disconnect();
      return undefined;
    }
    const judge = (_name, payload, resolve) => resolve(payload);
    const left = this.#waits.until(['callDisconnect'], judge, limits, {
      ask: () => this.#disconnect(),
      tooLate: 'Leaving took longer than',
    });
    return endOrClosing(left);
  }

  #disconnect() {
    this.#wrapper.disconnectCall();
    if (this.#state !== 'none') this.#state = 'leaving';
  }
}

module.exports = { Call };
