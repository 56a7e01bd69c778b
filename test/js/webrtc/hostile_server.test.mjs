// A server that does not mean well: whatever it says, the call goes on or is refused with a reason, and
// the process holds nothing of it afterwards.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { ANSWER, FakeSfu, OFFER, publisher } from '../../support/fake_sfu.mjs';
import { hostileDescriptions, hostileForms } from '../../support/hostile_messages.mjs';
import { LOCAL } from '../../support/streams.mjs';
import { openMember } from '../../support/webrtc_room.mjs';

const SMALL = { width: 320, height: 180, maxFPS: 15 };
// In one line, of printable characters.
const READABLE = /^[ -~]{1,300}$/;
const CODES = [403, 404, 408, 480, 502, 503, 504];
// Every how many of the hostile forms is tried. No divisor of the number of faults, so that each fault
// is among them.
const STEP = 9;
const ANSWER_STEP = 25;
const EVENT_STEP = 3;
const AT_ONCE = 5;

const every = (step, list) => [...list].filter((_, index) => index % step === 0);

function isMessage(text) {
  try {
    const { janus } = JSON.parse(text);
    return typeof janus === 'string' && janus !== '' && !text.includes('\0');
  } catch {
    return false;
  }
}

// Begins a call. It is over when it has been refused, or left; resolves with "asked" when the server
// was asked for an answer of this kind.
function begin(sfu, member, kind) {
  const over = member.does('join', sfu.uri());
  const asked = sfu.asked(kind).then(() => 'asked');
  const leave = async () => {
    await member.does('call', 'disconnectCall');
    return over;
  };
  return { over, reached: Promise.race([asked, over]), leave };
}

function assertRefused({ reason, code }) {
  assert.match(reason, READABLE);
  assert.ok(CODES.includes(code), `${code} ${reason}`);
}

async function assertOneLineEach(member) {
  for (const line of (await member.does('log')).split('\n').slice(0, -1)) {
    assert.match(line, /^\d{4}-\d\d-\d\dT[\d:.]+Z [^\p{Cc}]*$/u);
  }
}

const plugin = (data) => ({
  janus: 'event',
  plugindata: { plugin: 'p', data: { room: 'meeting', ...data } },
});
const base = { transaction: '1', session_id: 1 };
const created = { ...base, janus: 'success', data: { id: 1 } };
const joined = {
  ...base,
  sender: 2,
  ...plugin({ videoroom: 'joined', id: 'me', private_id: 1, publishers: [], attendees: [] }),
};
const ANSWERS = [
  ['created', created, 'attached'],
  ['attached', created, 'joined'],
  ['joined', joined, 'published'],
];

async function answers(sfu, member, [kind, example, next]) {
  const total = [...hostileForms(example)].length;
  for (let form = 0; form < total; form += STEP) {
    let text;
    // What the server says first counts, if it counts at all.
    sfu.replies = (asked, answer) => {
      if (asked !== kind || text !== undefined) return [answer];
      text = [...hostileForms(answer)][form] ?? '';
      return [text, answer];
    };
    const call = begin(sfu, member, next);
    const outcome = await call.reached;
    if (outcome === 'asked') await call.leave();
    else assertRefused(outcome);
    await member.does('forget');
  }
}

const EVENTS = [
  plugin({ videoroom: 'event', publishers: [publisher('Ada')] }),
  plugin({ videoroom: 'event', unpublished: 'Ada' }),
  plugin({ videoroom: 'event', leaving: 'Ada' }),
  {
    janus: 'trickle',
    candidate: { sdpMLineIndex: 0, candidate: 'candidate:1 1 udp 1 ::1 9 typ host' },
  },
  { janus: 'trickle', candidate: { completed: true } },
  { janus: 'hangup', reason: 'x', sender: 4711 },
  { janus: 'webrtcup' },
];

// Nested deeper than the engine reads.
const isDeep = (text) => text.includes('['.repeat(40));

// A busy machine may take longer for all of it than the engine waits for media.
function assertReadOrTooLate(outcome) {
  if (outcome !== 'asked') assert.equal(outcome.reason, 'no way for media was found');
}

// Resolves when the engine has read all that was told before, or with the end of the call.
function hasRead(sfu, call) {
  const asked = new Promise((resolve) => {
    sfu.on('request', (kind, { body }) => {
      if (body?.streams?.[0].feed === 'last') resolve('asked');
    });
  });
  sfu.tellRoom({ videoroom: 'event', publishers: [publisher('last')] });
  return Promise.race([asked, call.over]);
}

async function events(sfu, member) {
  for (const event of EVENTS) {
    const call = begin(sfu, member, 'published');
    await call.reached;
    const forms = every(EVENT_STEP, hostileForms({ sender: sfu.publisherHandle, ...event }));
    for (const text of forms) if (isMessage(text) && !isDeep(text)) sfu.tell(text);
    assertReadOrTooLate(await hasRead(sfu, call));
    await call.leave();
    await member.does('forget');
  }
}

async function crowd(sfu, member) {
  const call = begin(sfu, member, 'published');
  await call.reached;
  for (const event of EVENTS) for (let count = 0; count < 100; ++count) sfu.tell(event);
  const crowd = Array.from({ length: 3000 }, (_, id) => ({ id }));
  sfu.tellRoom({ videoroom: 'event', publishers: crowd });
  // From the last one on, so that nobody takes the place of somebody else.
  for (const { id } of crowd.reverse()) sfu.tellRoom({ videoroom: 'event', leaving: id });
  assertReadOrTooLate(await hasRead(sfu, call));
  await call.leave();
}

async function noMessages(sfu, member) {
  const texts = [...hostileForms({ janus: 'webrtcup' })];
  for (const text of texts.filter((each) => !isMessage(each) || isDeep(each))) {
    const call = begin(sfu, member, 'published');
    await call.reached;
    sfu.tell(text);
    const { code, reason } = await call.over;
    assert.deepEqual([code, reason], [502, 'the server is no SFU that this engine knows']);
    await member.does('forget');
  }
}

async function tooLong(sfu, member) {
  const call = begin(sfu, member, 'published');
  await call.reached;
  sfu.tell({ janus: 'webrtcup', extra: 'x'.repeat(5 << 20) });
  const { code, reason } = await call.over;
  assert.equal(code, 503);
  assert.match(reason, /^the server was lost: /);
}

async function reasons(sfu, member) {
  const reason = 'gone\u0000\n\u202e'.padEnd(100_000, 'x');
  const call = begin(sfu, member, 'published');
  await call.reached;
  sfu.tell({ janus: 'hangup', reason });
  const end = await call.over;
  assert.equal(end.code, 504);
  assert.match(end.reason, /^the server gave up the media: gone\?{5}x{100,200}$/);
}

async function offers(sfu, member) {
  const forms = every(STEP, hostileDescriptions(OFFER));
  const formOfHandle = new Map();
  sfu.replies = (kind, answer, { body, handle_id }) => {
    if (kind !== 'offered') return [answer];
    const form = Number(body.streams[0].feed);
    formOfHandle.set(handle_id, form);
    return [{ ...answer, jsep: { type: 'offer', sdp: forms[form] } }];
  };
  const call = begin(sfu, member, 'published');
  await call.reached;
  const outcomes = new Map();
  let next = 0;
  const offer = () => {
    if (next === forms.length) return;
    sfu.tellRoom({ videoroom: 'event', publishers: [publisher(`${next++}`)] });
  };
  const all = new Promise((resolve) => {
    sfu.on('request', (kind, { handle_id }) => {
      const form = formOfHandle.get(handle_id);
      const isOutcome = kind === 'started' || kind === 'detach';
      if (!isOutcome || form === undefined || outcomes.has(form)) return;
      outcomes.set(form, kind);
      sfu.tellRoom({ videoroom: 'event', unpublished: `${form}` });
      if (outcomes.size === forms.length) resolve('all');
      else offer();
    });
  });
  for (let count = 0; count < AT_ONCE; ++count) offer();
  const outcome = await Promise.race([all, call.over]);
  if (outcome !== 'all') assertReadOrTooLate(outcome);
  else assert.deepEqual([...new Set(outcomes.values())].sort(), ['detach', 'started']);
  await call.leave();
}

async function descriptions(sfu, member) {
  for (const sdp of every(ANSWER_STEP, hostileDescriptions(ANSWER))) {
    sfu.replies = (kind, answer) =>
      kind === 'published' ? [{ ...answer, jsep: { type: 'answer', sdp } }] : [answer];
    const call = begin(sfu, member, 'published');
    await call.reached;
    // What is told after the answer is read after it.
    const outcome = await hasRead(sfu, call);
    if (outcome === 'asked') await call.leave();
    else assertRefused(outcome);
    await member.does('forget');
  }
}

async function lateEnd(sfu, member) {
  sfu.publishers = [publisher('Ada')];
  const started = sfu.asked('started');
  const call = begin(sfu, member, 'published');
  const { handle_id: handle } = await started;
  // A connection that ends within half a second is replaced later.
  await member.does('pictures', LOCAL, SMALL.maxFPS);
  const again = sfu.asked('started');
  // Read while the engine is busy with what is told before.
  sfu.tell({ janus: 'webrtcup', extra: Array.from({ length: 400_000 }, (_, index) => index) });
  const sdp = OFFER.replaceAll('473907205', '4711');
  sfu.tellRoom({ videoroom: 'updated', streams: [] }, { type: 'offer', sdp }, handle);
  sfu.tell({ janus: 'hangup', reason: 'late' }, handle);
  assertReadOrTooLate(await Promise.race([again.then(() => 'asked'), call.over]));
  assert.doesNotMatch(await member.does('log'), /late/);
  await call.leave();
  sfu.publishers = [];
}

const TRIALS = [
  ...ANSWERS.map((example) => [
    `answers "${example[0]}" of any form are refused, or passed over`,
    (sfu, member) => answers(sfu, member, example),
  ]),
  ['events of any form are passed over', events],
  ['a crowd that comes and goes, and repeated events, are followed', crowd],
  ['what is no message ends the call with a reason', noMessages],
  ['a message that is too long is the end of the server', tooLong],
  ["a reason of the server's is made readable", reasons],
  ["a participant's description of any form is accepted or refused", offers],
  ['an answer to our description of any form ends the call, or does not', descriptions],
  ['what ends a connection does not end the next one, too', lateEnd],
];

test('a call goes on or is refused with a reason, whatever the server says', async (t) => {
  const sfu = await FakeSfu.start(t);
  const member = await openMember(t, { capture: SMALL });
  // What GLib and GStreamer keep for the process is there after a first call.
  const first = begin(sfu, member, 'published');
  await first.reached;
  await first.leave();
  const held = await member.does('abandonJoin', sfu.uri(), 0);
  for (const [what, trial] of TRIALS) {
    await t.test(what, async () => {
      sfu.replies = (kind, answer) => [answer];
      await member.does('forget');
      await trial(sfu, member);
    });
  }
  await assertOneLineEach(member);
  sfu.replies = (kind, answer) => [answer];
  assert.deepEqual(await member.does('abandonJoin', sfu.uri(), 0, held), held);
});
