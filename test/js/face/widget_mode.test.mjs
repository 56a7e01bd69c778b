// Entering widget mode: it resolves when a widget can open the memory, and otherwise rejects.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { runInChild } from '../../support/child.mjs';
import { startProcess } from '../../support/commanded_process.mjs';
import { limitedSharedMemory } from '../../support/shared_memory/limited_shared_memory.mjs';
import { remote } from '../../support/streams.mjs';
import '../../support/face.mjs'; // names the addon for the processes

const REMOTE = remote(0);
const OTHER = remote(1);
const NO_MAIN_MEMORY = new RegExp(
  'Error: The memory of the meeting is not there, or not any more ' +
    '\\(missing: /dev/shm/SHM\\w{25}, /dev/shm/sem.SEM\\w{20}\\): ' +
    'its widget process has ended, of which a meeting has one in its life, ' +
    'or /dev/shm was full when it was opened \\(see: npx tessel-wrapper doctor\\)\n',
);
const startMeeting = (t, options) =>
  startProcess(t, './support/processes/face_meeting_process.mjs', options);

test('entering widget mode rejects while /dev/shm is full, and succeeds once there is space', async (t) => {
  const room = limitedSharedMemory();
  const meeting = startMeeting(t, { command: room.command });
  await meeting.does('join', 'tessel:demo?participants=2', 2);
  await meeting.does('enter', REMOTE);
  room.fill(meeting);
  for (let attempt = 0; attempt < 2; attempt += 1) {
    await assert.rejects(meeting.does('enter', OTHER), {
      message:
        /Error: The stream remote-1 has not entered widget mode\. There is no room for it in \/dev\/shm \(see: npx tessel-wrapper doctor\), or a widget died while it held the table of streams: then only a new meeting helps\n/,
    });
  }
  const names = await meeting.does('enter', REMOTE);
  room.empty(meeting);
  assert.deepEqual(await meeting.does('enter', OTHER), names);
  await meeting.ends();
});

test('a meeting opened while /dev/shm was full rejects widget mode, even when there is space later', async (t) => {
  const room = limitedSharedMemory();
  const meeting = startMeeting(t, { command: room.command });
  await meeting.does('isThere');
  room.fill(meeting);
  await meeting.does('join', 'tessel:demo?participants=1', 1);
  await assert.rejects(meeting.does('enter', REMOTE), { message: NO_MAIN_MEMORY });
  room.empty(meeting);
  await assert.rejects(meeting.does('enter', REMOTE), { message: NO_MAIN_MEMORY });
  await meeting.ends();
});

test("entering widget mode rejects after the meeting's widget process has ended", async (t) => {
  const meeting = startMeeting(t);
  await meeting.does('join', 'tessel:demo?participants=2', 2);
  const names = await meeting.does('enter', REMOTE);
  const widget = startProcess(t, './support/processes/widget_process.mjs');
  await widget.does('open', names);
  assert.deepEqual(await meeting.does('enter', REMOTE), names);
  await widget.ends();
  await assert.rejects(meeting.does('enter', REMOTE), { message: NO_MAIN_MEMORY });
  await assert.rejects(meeting.does('enter', OTHER), { message: NO_MAIN_MEMORY });
  await meeting.does('exit', REMOTE);
  await assert.rejects(meeting.does('enter', REMOTE), { message: NO_MAIN_MEMORY });
  await meeting.ends();
});

test('streams of every kind enter, and remote ones outside the table of streams are refused', () => {
  const child = runInChild(
    async (scripted, { openMeeting }, { say }) => {
      const meeting = await openMeeting();
      for (const [type, streamIndex] of [
        ['local', 3],
        ['content', 4],
        ...[0, 49, 50, -1].map((index) => ['remote', index]),
      ]) {
        const stream = { type, streamIndex };
        const added = meeting.waitFor('streamAdded');
        scripted.fire('NotifyStreamAdded', stream, 7);
        await added;
        const answer = meeting.enterWidgetMode(stream);
        await answer.then(
          (names) => say(names.shm_name === meeting.wrapper.getSharedDataInfo().shm_name),
          ({ name, message }) => say(`${name}: ${message}`),
        );
      }
      meeting.close();
    },
    {
      modules: [
        './support/scripted/scripted_engine.mjs',
        './support/face.mjs',
        './support/child.mjs',
      ],
    },
  );
  assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
  const refusal = (index) =>
    `RangeError: The stream remote-${index} cannot enter widget mode: that is for remote streams from 0 to 49`;
  assert.deepEqual(child.said, ['true', 'true', 'true', 'true', refusal(50), refusal(-1)]);
});
