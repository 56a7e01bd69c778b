'use strict';

// The events that a meeting emits: those of its wrapper, and its own.
const EVENT_NAMES = Object.freeze([
  'streamAdded',
  'streamRemoved',
  'streamUpdated',
  'gracefulEvent',
  'callConnectionStatus',
  'screenShareStatus',
  'contentReceive',
  'callDisconnect',
  'mediaMuteState',
  'micLevel',
  'noRtpMedia',
  'deviceChange',
  'eventNotify',
  'vspUpdateVOQI',
  'participants',
]);

function requireEventName(name) {
  if (EVENT_NAMES.includes(name)) return;
  throw new TypeError(`Unknown event ${String(name)}, expected one of ${EVENT_NAMES.join(', ')}`);
}

function requireEventNames(names) {
  if (!Array.isArray(names)) {
    throw new TypeError("Wrong type for the names of events, expected an array: ['streamAdded']");
  }
  names.forEach(requireEventName);
}

module.exports = { EVENT_NAMES, requireEventName, requireEventNames };
