'use strict';

// The errors with which the promises of a meeting reject, besides a signal's reason.

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

  constructor(operation, args, status) {
    super(`${operation} was answered with "${status}"${adviceOn(operation, args, status)}`);
    this.status = status;
  }
}

function adviceOn(operation, [share], status) {
  if (operation !== 'startPresentation') return '';
  if (status === 'denied') return ': request the token first, with requestContentShareToken';
  const identifier = share[`${share.type}Id`];
  return `: ${share.type}${identifier === undefined ? '' : ` ${identifier}`}`;
}

// The expected event did not arrive in time.
class TimeoutError extends Error {
  name = 'TimeoutError';
}

// The meeting, or the widget, was closed.
class ClosedError extends Error {
  name = 'ClosedError';
}

// Adds the stack frames of `asked`, an error made in the application's call, to `error`, which was
// made in a listener or a timer.
function withFramesOf(asked, error) {
  const frames = /\n {4}at .*/s.exec(asked.stack)?.[0] ?? '';
  error.stack = `${error.name}: ${error.message}${frames}`;
  return error;
}

module.exports = { CallError, ClosedError, ShareError, TimeoutError, withFramesOf };
