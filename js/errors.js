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

// Nothing of what was waited for came in time.
class TimeoutError extends Error {
  name = 'TimeoutError';
}

// The meeting, or the widget, was closed.
class ClosedError extends Error {
  name = 'ClosedError';
}

// Gives `error`, which was made in a listener or a timer, the frames of `asked`, an error that was
// made where the application asked for what failed.
function withFramesOf(asked, error) {
  const frames = /\n {4}at .*/s.exec(asked.stack)?.[0] ?? '';
  error.stack = `${error.name}: ${error.message}${frames}`;
  return error;
}

module.exports = { CallError, ClosedError, ShareError, TimeoutError, withFramesOf };
