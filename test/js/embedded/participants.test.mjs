// The event "participants" of the embedded engine.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { Meeting } from '../../support/embedded_meeting.mjs';
import { LOCAL, remote } from '../../support/streams.mjs';

function register(meeting) {
  meeting.wrapper.registerEvent({
    eventName: 'participants',
    expires: 3600,
    mimeType: 'application',
    mimeSubType: 'json',
  });
}

// Resolves with the participants of the first past or future event for which `matches` holds.
async function participantsWhere(meeting, matches) {
  const participantsOf = ({ eventBody }) => JSON.parse(eventBody).participants;
  const event = await meeting.seen(
    'eventNotify',
    (payload) => payload.eventName === 'participants' && matches(participantsOf(payload)),
  );
  return participantsOf(event);
}

const SILENT = 'speak=me@80000-80001';
const QUIET = { audioMuted: false, videoMuted: false, speaking: false, presenting: false };

test('a subscription to the participants delivers the present ones at once', async (t) => {
  const meeting = new Meeting(t);
  register(meeting);
  assert.deepEqual(await participantsWhere(meeting, () => true), [], 'nobody outside a call');
  await meeting.join(`tessel:demo?participants=2&name=1:Zo%C3%AB&${SILENT}`, {
    endpointName: 'Me',
  });
  const [me, first, second, ...others] = await participantsWhere(meeting, (all) => all.length > 0);
  assert.deepEqual(others, []);
  const { csrc: firstCsrc } = await meeting.seen('streamAdded', (s) => s.streamIndex === 0);
  const { csrc: secondCsrc } = await meeting.seen('streamAdded', (s) => s.streamIndex === 1);
  const localCsrc = meeting.wrapper.getFrame(LOCAL, 0).csrc;
  assert.deepEqual(me, { stream: LOCAL, csrc: localCsrc, guid: me.guid, name: 'Me', ...QUIET });
  assert.deepEqual(first, {
    ...{ stream: remote(0), csrc: firstCsrc, guid: first.guid, name: first.name },
    ...QUIET,
  });
  assert.deepEqual(second, {
    ...{ stream: remote(1), csrc: secondCsrc, guid: second.guid, name: 'Zoë' },
    ...QUIET,
  });
  assert.match(first.name, /^\p{Lu}\p{Ll}+$/u);
  assert.equal(new Set([me.guid, first.guid, second.guid]).size, 3);
});

test('a subscription to the participants delivers each change', async (t) => {
  const meeting = new Meeting(t);
  register(meeting);
  await meeting.join(
    'tessel:demo?participants=1&come=1@0.5&leave=1@1&videomute=0@0.5-1&speak=0@0.4-0.8&present=0@0.6',
  );
  await participantsWhere(meeting, (all) => all.length === 3);
  await participantsWhere(meeting, ([, first]) => first?.videoMuted);
  await participantsWhere(meeting, ([, first]) => first?.speaking);
  const [, presenter] = await participantsWhere(meeting, ([, first]) => first?.presenting);
  const { presenterGuid } = await meeting.seen('contentReceive');
  assert.equal(presenter.guid, presenterGuid);
  meeting.wrapper.muteLocalAudio(true);
  await participantsWhere(meeting, ([me]) => me?.audioMuted);
  meeting.forget();
  await meeting.leave();
  await participantsWhere(meeting, (all) => all.length === 0);
});
