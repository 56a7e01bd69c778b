'use strict';

// What the promises of a meeting reject with, besides a signal's own reason.

// The engine ended the call, or did not join it.
class CallError extends Error {
  name = 'CallError';

  constructor({ callId, reason, code }) {
    super(`${reason} (${code})`);
    this.callId = callId;
    this.reason = reason;
    this.code = code;
  }
}

// The engine denied the token, or did not start the share.
class ShareError extends Error {
  name = 'ShareError';

  constructor(operation, status) {
    super(`${operation} was answered with "${status}"`);
    this.status = status;
  }
}

// Nothing of what was waited for came in time.
class TimeoutError extends Error {
  name = 'TimeoutError';
}

// The meeting, or the widget, was closed.
class ClosedError extends Error {
  name = 'ClosedError';
}

module.exports = { CallError, ClosedError, ShareError, TimeoutError };
