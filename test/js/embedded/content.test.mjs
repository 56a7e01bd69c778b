// Content on the embedded engine: the right to share it, its stream, and the stream of a presenting
// participant.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { readCard } from '../../support/card_code.mjs';
import { Meeting } from '../../support/embedded_meeting.mjs';
import { CONTENT, remote } from '../../support/streams.mjs';

const ALONE = 'tessel:room?participants=0';

// The detail of the card of shared content: the kind and the number of the source.
const KINDS = ['participant', 'screen', 'application', 'window'];

function sharedOn(frame) {
  const { detail } = readCard(frame);
  return [KINDS[detail >> 22], detail & 0x3fffff];
}

const isContent = ({ type }) => type === 'content';

const statuses = (meeting) => meeting.payloads('screenShareStatus').map(({ status }) => status);

// Calls `method` and resolves with the status that answers it.
async function answer(meeting, method, ...args) {
  const before = statuses(meeting).length;
  meeting.wrapper[method](...args);
  await meeting.until(() => statuses(meeting).length > before);
  return statuses(meeting)[before];
}

async function withToken(t, uri = ALONE) {
  const meeting = new Meeting(t);
  await meeting.join(uri);
  assert.equal(await answer(meeting, 'requestContentShareToken'), 'token_granted');
  return meeting;
}

for (const [params, shared] of [
  [{ type: 'screen' }, ['screen', 0]],
  [{ type: 'screen', screenId: 1 }, ['screen', 1]],
  [{ type: 'application', screenId: 1, applicationId: 7 }, ['application', 7]],
  [{ type: 'window', applicationId: 7, windowId: 42 }, ['window', 42]],
]) {
  test(`sharing ${JSON.stringify(params)} shows ${shared.join(' ')}`, async (t) => {
    const meeting = await withToken(t);
    assert.equal(await answer(meeting, 'startPresentation', params), 'started');
    const { csrc } = await meeting.seen('streamAdded', isContent);
    const frame = await meeting.nextFrame(CONTENT);
    assert.deepEqual(sharedOn(frame), shared);
    assert.deepEqual([frame.width, frame.height], [1280, 720]);
    assert.equal(frame.csrc, csrc);
  });
}

test('another source can replace the shared one', async (t) => {
  const meeting = await withToken(t);
  await answer(meeting, 'startPresentation', { type: 'screen' });
  await meeting.nextFrame(CONTENT);
  const window = { type: 'window', windowId: 3 };
  assert.equal(await answer(meeting, 'startPresentation', window), 'started');
  await meeting.frameWhere(CONTENT, (frame) => sharedOn(frame)[0] === 'window');
  await meeting.seen('streamUpdated', isContent);
  assert.equal(meeting.payloads('streamAdded').filter(isContent).length, 1);
  assert.equal(meeting.payloads('streamUpdated').filter(isContent).length, 1);
});

test('sharing without the token is refused', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(ALONE);
  assert.equal(await answer(meeting, 'startPresentation', { type: 'screen' }), 'denied');
  assert.deepEqual(meeting.payloads('streamAdded'), []);
});

test('outside a call neither the token nor a share is possible', async (t) => {
  const meeting = new Meeting(t);
  assert.equal(await answer(meeting, 'requestContentShareToken'), 'token_denied');
  assert.equal(await answer(meeting, 'startPresentation', { type: 'screen' }), 'denied');
});

test('an unknown source cannot be shared', async (t) => {
  const meeting = await withToken(t, `${ALONE}&monitors=800x600@0:0`);
  for (const params of [
    { type: 'screen', screenId: 1 },
    { type: 'screen', screenId: -2 },
    { type: 'application' },
    { type: 'window', applicationId: 7 },
  ]) {
    assert.equal(await answer(meeting, 'startPresentation', params), 'failed');
  }
  assert.deepEqual(meeting.payloads('streamAdded'), []);
});

test('returning the token first stops the share', async (t) => {
  const meeting = await withToken(t);
  await answer(meeting, 'startPresentation', { type: 'screen' });
  meeting.wrapper.releaseContentShareToken();
  await meeting.seen('screenShareStatus', ({ status }) => status === 'token_relinquished');
  assert.deepEqual(statuses(meeting).slice(-2), ['stopped', 'token_relinquished']);
  assert.ok(meeting.showsNothing(CONTENT));
  assert.equal(await answer(meeting, 'startPresentation', { type: 'screen' }), 'denied');
});

test('the end of the call stops the share and revokes the token', async (t) => {
  const meeting = await withToken(t);
  await answer(meeting, 'startPresentation', { type: 'screen' });
  await meeting.leave();
  assert.deepEqual(statuses(meeting).slice(-2), ['stopped', 'token_relinquished']);
  assert.equal(meeting.payloads('streamRemoved').filter(isContent).length, 1);
});

test('the token is denied while a participant presents, and granted afterwards', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join('tessel:room?participants=2&size=64x36&present=1@0-4');
  const { presenterGuid } = await meeting.seen('contentReceive', ({ isReceiving }) => isReceiving);
  assert.notEqual(presenterGuid, '');
  assert.equal(await answer(meeting, 'requestContentShareToken'), 'token_denied');
  assert.equal(await answer(meeting, 'startPresentation', { type: 'screen' }), 'denied');
  assert.deepEqual(sharedOn(await meeting.nextFrame(CONTENT)), ['participant', 1]);
  await meeting.seen('contentReceive', ({ isReceiving }) => !isReceiving);
  assert.deepEqual(meeting.payloads('contentReceive'), [
    { isReceiving: true, presenterGuid },
    { isReceiving: false, presenterGuid },
  ]);
  assert.equal(meeting.payloads('streamRemoved').filter(isContent).length, 1);
  assert.ok(meeting.showsNothing(CONTENT));
  assert.equal(await answer(meeting, 'requestContentShareToken'), 'token_granted');
});

test('each presenter has its own identifier', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join('tessel:room?participants=2&size=64x36&present=0@0-0.5,1@1');
  const [first, second] = await meeting.until(() => {
    const shared = meeting.payloads('contentReceive').filter(({ isReceiving }) => isReceiving);
    return shared.length === 2 && shared.map(({ presenterGuid }) => presenterGuid);
  });
  assert.notEqual(first, second);
});

test('no participant presents while the token is taken', async (t) => {
  const meeting = await withToken(t, 'tessel:room?participants=1&size=64x36&present=0@1');
  await meeting.until(() => meeting.log().includes('Z participant 0 gets no token\n'));
  await meeting.passes(remote(0), 3);
  assert.deepEqual(meeting.payloads('contentReceive'), []);
});

test('the content stream ends when its presenter leaves', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join('tessel:room?participants=1&size=64x36&present=0@0&leave=0@1');
  await meeting.seen('streamRemoved', ({ type }) => type === 'remote');
  assert.deepEqual(
    meeting.payloads('streamRemoved').map(({ type }) => type),
    ['content', 'remote'],
  );
  assert.equal(meeting.payloads('contentReceive').at(-1).isReceiving, false);
});
