// The objects that the wrapper's methods read, and all ways in which they can be invalid.
//
// A record is { objectName, properties }: the name by which error texts call the object, and its
// properties in the order in which they are read, each with `name`, the `type` of the error texts,
// `of` (the record that an Object, or that each element of an Array, is read as) and `optional`.

const property = (type) => (name, of) => ({ name, type, of });
const string = property('String');
const boolean = property('Boolean');
const number = property('Number');
const object = property('Object');
const array = property('Array');
const optional = (read) => ({ ...read, optional: true });

const mediaStreamState = {
  objectName: 'MediaStreamState',
  properties: [
    boolean('contentStreamEnabled'),
    boolean('incomingAudioEnabled'),
    boolean('incomingVideoEnabled'),
    boolean('outgoingAudioMuted'),
    boolean('outgoingVideoMuted'),
  ],
};

const audioInDevice = {
  objectName: 'AudioInDevice',
  properties: [string('audioInId'), string('audioInName'), string('audioInSourceName')],
};

const audioOutDevice = {
  objectName: 'AudioOutDevice',
  properties: [string('audioOutId'), string('audioOutName'), string('audioOutSourceName')],
};

const capability = {
  objectName: 'CaptureCaptureCapability',
  properties: [number('width'), number('height'), number('maxFPS')].map(optional),
};

const videoDevice = {
  objectName: 'VideoDevice',
  properties: [
    string('videoDeviceId'),
    string('videoDeviceName'),
    optional(object('capability', capability)),
  ],
};

const gracefulEventState = {
  objectName: 'GracefulEventState',
  properties: [boolean('enabled'), string('event')],
};

const turnServerInfo = {
  objectName: 'TurnServerInfo',
  properties: [
    string('protocol'),
    string('fqdn'),
    string('address'),
    number('port'),
    string('username'),
    string('password'),
    number('priority'),
    number('bandwidth'),
  ],
};

// By the name of the method.
export const records = {
  connectCall: {
    objectName: 'ConnectParams',
    properties: [
      string('uri'),
      string('endpointName'),
      string('meetingGuid'),
      string('endpointName'),
      number('maxBandwidth'),
      boolean('forceTurn'),
      boolean('enableRdc'),
      boolean('isVesperMeeting'),
      boolean('enableClientDrivenLayouts'),
      boolean('enableClientLayoutOrdering'),
      string('meetingAttributes'),
      array('meetingFeatures'),
      array('gracefulEvents', gracefulEventState),
      object('mediaStreamState', mediaStreamState),
      array('turnServers', turnServerInfo),
    ],
  },
  updateMediaStreamState: mediaStreamState,
  setAudioInDevice: audioInDevice,
  setAudioOutDevice: audioOutDevice,
  setVideoDevice: videoDevice,
  selectDevices: {
    objectName: 'DeviceSelectionParams',
    properties: [
      object('videoDevice', videoDevice),
      object('audioInDevice', audioInDevice),
      object('audioOutDevice', audioOutDevice),
    ],
  },
  sendAudioDeviceStats: {
    objectName: 'AudioDeviceStats',
    properties: [
      boolean('isSpeakerMuted'),
      number('speakerVolume'),
      boolean('isMicMuted'),
      number('micVolume'),
    ],
  },
  startPresentation: {
    objectName: 'ContentShareParams',
    properties: [
      string('type'),
      ...[number('screenId'), number('applicationId'), number('windowId')].map(optional),
    ],
  },
  updateVideoStreamsState: {
    objectName: 'VideoStreamState',
    properties: [object('VideoStreamState')],
  },
  configureMeetingStats: {
    objectName: 'configureMeetingStats',
    properties: [boolean('enable'), number('timerDuration')],
  },
  updateConfigData: { objectName: 'ConfigDataHelper', properties: [string('configData')] },
  registerEvent: {
    objectName: 'RegisterEventParams',
    properties: [string('eventName'), number('expires'), string('mimeType'), string('mimeSubType')],
  },
  unregisterEvent: { objectName: 'UnregisterEventParams', properties: [string('eventName')] },
};

// An element of updateVideoStreamsState's VideoStreamInfos. Error texts call it by no name.
export const videoStreamInfo = {
  objectName: '',
  properties: [
    number('ssrc'),
    number('participantSsrc'),
    number('speakerGroup'),
    number('priority'),
  ],
};

// ---- Values of another type

const NOT_AN_OBJECT = [undefined, null, true, 1, 'text', Symbol('symbol'), 1n];

export const WRONG_VALUES = {
  Object: NOT_AN_OBJECT,
  Array: [...NOT_AN_OBJECT, {}, { length: 0 }, () => {}, new Proxy([], {}), new Uint8Array(2)],
  String: [
    undefined,
    null,
    true,
    1,
    1n,
    Symbol('text'),
    {},
    ['text'],
    () => 'text',
    Object('text'),
  ],
  Boolean: [
    undefined,
    null,
    0,
    1,
    1n,
    'true',
    Symbol('true'),
    {},
    [true],
    () => true,
    Object(true),
  ],
  Number: [undefined, null, true, 1n, '3', Symbol('3'), {}, [3], () => 3, Object(3), new Date(3)],
};

// ---- Walking through a good value

// Every property that is read of `value`, in the order of the reading, once each: { path, name,
// type, objectName, optional }, `path` with all that leads there, as ['turnServers', 0, 'port'].
export function placesOf(record, value, path = []) {
  const places = new Map();
  for (const { name, type, of, optional: isOptional = false } of record.properties) {
    if (places.has(name)) continue;
    const here = [...path, name];
    const inside = [];
    if (of && type === 'Object') inside.push(...placesOf(of, value[name], here));
    if (of && type === 'Array') {
      value[name].forEach((element, i) => inside.push(...placesOf(of, element, [...here, i])));
    }
    const { objectName } = record;
    places.set(name, [{ path: here, name, type, objectName, optional: isOptional }, ...inside]);
  }
  return [...places.values()].flat();
}

// As 'turnServers[0].port'.
export const pathText = (path) =>
  path
    .map((key) => (typeof key === 'number' ? `[${key}]` : `.${key}`))
    .join('')
    .slice(1);

export function without(object, name) {
  const rest = { ...object };
  delete rest[name];
  return rest;
}

// The object in `value` that holds the property at the end of `path`.
export function holderOf(value, path) {
  return path.slice(0, -1).reduce((holder, key) => holder[key], value);
}

// `value` with what stands at `path` exchanged for what `exchange` makes of it.
export function exchanged(value, path, exchange) {
  if (path.length === 0) return exchange(value);
  const holder = holderOf(value, path);
  holder[path.at(-1)] = exchange(holder[path.at(-1)]);
  return value;
}

export const missingText = ({ name, objectName }) =>
  `Missing property ${name} on object ${objectName}`;

export const wrongTypeText = ({ name, objectName, type }) =>
  `Wrong type for property ${name} on object ${objectName}, expected ${type}`;

// All invalid values for one place of `good()`: { what, value, message } for each.
export function refusalsAt(place, good) {
  const { path, name, type } = place;
  const found = WRONG_VALUES[type].map((wrong) => ({
    what: `${pathText(path)} of type ${wrong === null ? 'null' : typeof wrong}`,
    value: exchanged(good(), path, () => wrong),
    message: wrongTypeText(place),
  }));
  if (place.optional) return found;
  const value = good();
  delete holderOf(value, path)[name];
  return [{ what: `no ${pathText(path)}`, value, message: missingText(place) }, ...found];
}

export const refusals = (record, good) =>
  placesOf(record, good()).flatMap((place) => refusalsAt(place, good));

// ---- Watching a value being read

// A handler for a Proxy that writes down every operation on it, `path` in front of the key.
function watchingHandler(path, log) {
  const prefix = path === '' ? '' : `${path}.`;
  return new Proxy(
    {},
    {
      get:
        (_, operation) =>
        (target, key, ...rest) => {
          log.push(`${operation} ${prefix}${String(key)}`);
          return Reflect[operation](target, key, ...rest);
        },
    },
  );
}

// An array whose elements are got through getters that write it down.
function watchedArray(elements, path, log) {
  const array = [];
  elements.forEach((element, i) => {
    const get = () => {
      log.push(`get ${path}[${i}]`);
      return element;
    };
    Object.defineProperty(array, i, { get, configurable: true });
  });
  return array;
}

// A list of what is in `before`, until its first element is read: from then on, of what is in
// `after`. The first is the same in both.
export function resizedByItsFirst(before, after) {
  const list = [...before];
  const get = () => {
    list.splice(1, Infinity, ...after.slice(1));
    return before[0];
  };
  return Object.defineProperty(list, 0, { get });
}

// `value`, such that every access to it, or to its content, is recorded in `log`.
export function watched(value, log, path = '') {
  if (Array.isArray(value)) {
    const elements = value.map((element, i) => watched(element, log, `${path}[${i}]`));
    return watchedArray(elements, path, log);
  }
  if (typeof value !== 'object') return value;
  const prefix = path === '' ? '' : `${path}.`;
  const entries = Object.entries(value).map(([key, inner]) => [
    key,
    watched(inner, log, `${prefix}${key}`),
  ]);
  return new Proxy(Object.fromEntries(entries), watchingHandler(path, log));
}

// The expected log after `value` was read as `record`: every property is asked for, then read for
// its type, then read for its value. An optional one is asked for once more.
export function expectedReads(record, value, path = '') {
  const reads = [];
  const prefix = path === '' ? '' : `${path}.`;
  for (const { name, type, of, optional: isOptional } of record.properties) {
    const here = `${prefix}${name}`;
    if (isOptional) reads.push(`has ${here}`);
    if (isOptional && !(name in value)) continue;
    reads.push(`has ${here}`, `get ${here}`, `get ${here}`);
    if (of && type === 'Object') reads.push(...expectedReads(of, value[name], here));
    if (type !== 'Array') continue;
    value[name].forEach((element, i) => {
      reads.push(`get ${here}[${i}]`);
      if (of) reads.push(...expectedReads(of, element, `${here}[${i}]`));
    });
  }
  return reads;
}
