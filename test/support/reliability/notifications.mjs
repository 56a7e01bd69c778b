// The engine's 14 notifications, and the events that JavaScript must receive.

const text = (number) => `${number}, as a text that is too long to stand in the object itself`;
const of = (list, turn) => list[turn % list.length];
const STATUSES = [
  ...['started', 'failed', 'denied', 'token_granted', 'token_denied'],
  ...['stopped', 'token_relinquished'],
];

// Each with arguments that carry the number `n`, and the resulting payload.
const NUMBERED = [
  [
    ...['NotifyStreamAdded', 'streamAdded', (n) => [{ kind: 1, index: 3 }, n]],
    (n) => ({ type: 'remote', streamIndex: 3, csrc: n }),
  ],
  [
    ...['NotifyStreamRemoved', 'streamRemoved', (n) => [{ kind: 0, index: 4 }, n]],
    (n) => ({ type: 'local', streamIndex: 4, csrc: n }),
  ],
  [
    ...['NotifyStreamUpdated', 'streamUpdated', (n) => [{ kind: 2, index: 5 }, n]],
    (n) => ({ type: 'content', streamIndex: 5, csrc: n }),
  ],
  [
    ...['NotifyGracefulEvent', 'gracefulEvent', (n) => [text(n), true]],
    (n) => ({ event: text(n), enable: true }),
  ],
  [
    ...['NotifyContentReceiveStatus', 'contentReceive', (n) => [true, text(n)]],
    (n) => ({ isReceiving: true, presenterGuid: text(n) }),
  ],
  [
    ...['NotifyCallDisconnect', 'callDisconnect', (n) => [n, text(n), 5]],
    (n) => ({ callId: n, reason: text(n), code: 5 }),
  ],
  ['NotifyMicLevel', 'micLevel', (n) => [n], (n) => ({ level: n })],
  [
    ...['NotifyDeviceChange', 'deviceChange', (n) => [text(n), 1]],
    (n) => ({ id: text(n), type: 'video' }),
  ],
  [
    ...['NotifyEvent', 'eventNotify', (n) => [`name ${n}`, text(n)]],
    (n) => ({ eventName: `name ${n}`, eventBody: text(n) }),
  ],
  ['NotifyUpdateVOQualityIndex', 'vspUpdateVOQI', (n) => [n], (n) => ({ VSPVOQI: n })],
];

// Those whose payload cannot carry a number: all different ones, in `turn`.
const FEW = [
  [
    ...['NotifyCallConnectionStatus', 'callConnectionStatus', (turn) => [turn % 2 === 0]],
    (turn) => ({ connected: turn % 2 === 0 }),
  ],
  [
    ...[
      'NotifyScreenShareStatus',
      'screenShareStatus',
      (turn) => [of([0, 1, 2, 3, 4, 6, 7], turn)],
    ],
    (turn) => ({ status: of(STATUSES, turn) }),
  ],
  [
    ...['NotifyMediaMuteState', 'mediaMuteState', (turn) => [of([0, 1], turn), turn % 4 < 2]],
    (turn) => ({ mediaType: of(['video', 'audio'], turn), muted: turn % 4 < 2 }),
  ],
  [
    ...['NotifyRtpMediaState', 'noRtpMedia', (turn) => [of([0, 1, 2], turn), turn % 2 === 0]],
    (turn) => ({ mediaType: of(['video', 'audio', 'content'], turn), up: turn % 2 === 0 }),
  ],
];

const described = (isNumbered, [notification, event, args, payload]) => {
  return { isNumbered, notification, event, args, payload };
};

// { notification, event, args, payload, isNumbered }: `args` and `payload` are functions of a
// number, which can be told from the payload again if `isNumbered`. Between any two others is one
// of these.
export const NOTIFICATIONS = NUMBERED.flatMap((each, i) => [
  described(true, each),
  ...FEW.slice(i, i + 1).map((few) => described(false, few)),
]);
