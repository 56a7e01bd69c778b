'use strict';

// The records for opening and joining a meeting: their defaults and checks.

const CREATE_PARAMS = {
  appVersion: '',
  configPath: '',
  logPath: undefined, // required
  logPrefix: '',
  userAgent: 'tessel-wrapper',
};

// The defaults of a join: everything is sent and received, without relay servers.
const CONNECTION = {
  endpointName: '',
  meetingGuid: '',
  maxBandwidth: 4_000_000,
  forceTurn: false,
  enableRdc: false,
  isVesperMeeting: false,
  enableClientDrivenLayouts: true,
  enableClientLayoutOrdering: false,
  meetingAttributes: '',
  meetingFeatures: [],
  gracefulEvents: [],
  turnServers: [],
};
const MEDIA_STREAM_STATE = {
  contentStreamEnabled: true,
  incomingAudioEnabled: true,
  incomingVideoEnabled: true,
  outgoingAudioMuted: false,
  outgoingVideoMuted: false,
};
const SHARE_PROPERTIES = ['type', 'screenId', 'applicationId', 'windowId'];
const CONNECTION_PROPERTIES = ['uri', ...Object.keys(CONNECTION), 'mediaStreamState'];

function requireRecord(record, expectation) {
  if (typeof record === 'object' && record !== null && !Array.isArray(record)) return;
  throw new TypeError(expectation);
}

// The properties of `record` that are not undefined.
function given(record) {
  const entries = Object.entries(record ?? {});
  return Object.fromEntries(entries.filter(([, value]) => value !== undefined));
}

// If a misspelt name were ignored, the default of the intended one would apply silently.
function requireKnown(record, known, objectName) {
  const unknown = Object.keys(given(record)).find((name) => !known.includes(name));
  if (unknown === undefined) return;
  throw new TypeError(`Unknown property ${unknown} on object ${objectName}`);
}

// Repeats the addon's checks, since the addon is called only after the wait for the next second.
function createParams(params) {
  requireRecord(params, "open expects an object with a logPath: { logPath: '/tmp' }");
  requireKnown(params, Object.keys(CREATE_PARAMS), 'CreateParams');
  const record = { ...CREATE_PARAMS, ...given(params) };
  for (const [name, value] of Object.entries(record)) {
    const property = `property ${name} on object CreateParams`;
    if (value === undefined) throw new TypeError(`Missing ${property}`);
    if (typeof value !== 'string')
      throw new TypeError(`Wrong type for ${property}, expected String`);
  }
  return record;
}

function connectParams(connection) {
  requireRecord(connection, "join expects an object with a uri: { uri: 'tessel:demo' }");
  requireKnown(connection, CONNECTION_PROPERTIES, 'ConnectParams');
  const { mediaStreamState = {} } = connection;
  requireRecord(
    mediaStreamState,
    'Wrong type for property mediaStreamState on object ConnectParams, expected Object',
  );
  requireKnown(mediaStreamState, Object.keys(MEDIA_STREAM_STATE), 'MediaStreamState');
  return {
    ...CONNECTION,
    ...given(connection),
    mediaStreamState: { ...MEDIA_STREAM_STATE, ...given(mediaStreamState) },
  };
}

// The addon checks the rest.
function shareParams(params) {
  requireKnown(params, SHARE_PROPERTIES, 'ContentShareParams');
  return params;
}

module.exports = { connectParams, createParams, shareParams };
