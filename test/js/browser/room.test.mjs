// What the meeting application's room does with what is asked of it, without a page.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';

import { logIn, openRoom, stateIs } from './support/open_room.mjs';

const NAME = 'remote-0';
const SCREEN = { what: { type: 'screen', screenId: 0 } };

async function joinRoom(t, uri = 'tessel:test?participants=1') {
  const opened = await openRoom(t, uri);
  await opened.room.join();
  await stateIs(opened.room, ({ streams }) => streams.some(({ name }) => name === NAME));
  return opened;
}

test('a join that is asked for twice is done once', async (t) => {
  const { room } = await openRoom(t, 'tessel:test');
  await Promise.all([room.commands.join(), room.commands.join()]);
  await room.commands.join();
  assert.deepEqual(room.state.call, { phase: 'joined', reason: '' });
});

test('a join that cannot be asked for may be tried again', async (t) => {
  const { room, meeting } = await openRoom(t, 'tessel:test');
  meeting.join = () => Promise.reject(new TypeError('no such uri'));
  await assert.rejects(room.join(), { message: 'no such uri' });
  assert.deepEqual(room.state.call, { phase: 'left', reason: 'no such uri' });
  delete meeting.join;
  await room.join();
  assert.equal(room.state.call.phase, 'joined');
});

test('a room that is closed while it joins says nothing of it', async (t) => {
  const { room } = await openRoom(t, 'tessel:test?join=3600');
  const joining = room.join();
  room.close();
  assert.equal(await joining, undefined);
});

test('who leaves while a share is asked for shares nothing, and was refused nothing', async (t) => {
  const { room } = await joinRoom(t);
  const asking = room.commands.share(SCREEN);
  assert.equal(room.state.share.phase, 'asking');
  await Promise.all([assert.rejects(asking), room.commands.leave()]);
  assert.deepEqual(room.state.share, { phase: 'none', text: '' });
});

test('a share that is asked for outside a meeting is not refused to be shown later', async (t) => {
  const { room } = await openRoom(t, 'tessel:test');
  await assert.rejects(room.commands.share(SCREEN));
  assert.deepEqual(room.state.share, { phase: 'none', text: '' });
});

test('while a share is asked for no other one is', async (t) => {
  const { room } = await joinRoom(t);
  const asking = room.commands.share(SCREEN);
  await assert.rejects(room.commands.share(SCREEN), {
    message: 'A share is being asked for already',
  });
  await asking;
  assert.deepEqual(room.state.share, { phase: 'sharing', text: 'Screen 1' });
  const statuses = await logIn(room, 'screenShareStatus', 2);
  assert.deepEqual(
    statuses.map(({ status }) => status),
    ['token_granted', 'started'],
  );
});

// This process has the segment of the remote stream 0.
const isShared = () => /\/dev\/shm\/SHM\w{25}10$/m.test(readFileSync('/proc/self/maps', 'latin1'));

test('a window that is left before it is filled leaves its stream out of the shared memory', async (t) => {
  const { room } = await joinRoom(t);
  await room.enterWindow(NAME, 90);
  assert.equal(isShared(), true);
  room.leaveWindow(NAME);
  assert.equal(isShared(), false);
  // It takes until the next second.
  const entering = room.enterWindow(NAME, 90);
  room.leaveWindow(NAME);
  await entering;
  assert.equal(isShared(), false);
});

test('a stream whose window cannot be filled has none', async (t) => {
  const { room, meeting } = await joinRoom(t);
  meeting.enterWidgetMode = () => Promise.reject(new Error('no memory'));
  await assert.rejects(room.enterWindow(NAME, 90), { message: 'no memory' });
  assert.ok(room.state.streams.every(({ inWindow }) => !inWindow));
});
