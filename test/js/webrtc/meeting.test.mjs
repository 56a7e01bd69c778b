// Meetings of several processes in a room of a real SFU. Pictures are identified by their decoded
// pixels: the detail of a test card's code identifies the sender.

import assert from 'node:assert/strict';
import path from 'node:path';
import { test } from 'node:test';

import { writeCardClip } from '../../support/card_clip.mjs';
import { LOCAL, remote } from '../../support/streams.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

// Here rooms and participants have numbers, the server's default. Elsewhere they have names.
const ROOM = '4711';
const LEFT = { reason: 'the call was left', code: 0 };

// The codecs of a room, as its server's configuration has them, and the one that is then used.
const CODECS = [
  ['vp8,h264', 'VP8'],
  ['h264', 'H264'],
];

// Members of one room, the first one's card with the detail 1, and so on.
async function meet(t, count, { capture, videocodec = 'vp8,h264' } = {}) {
  const server = await startServer(t, { rooms: { [ROOM]: { videocodec } }, hasNumbers: true });
  const members = await Promise.all(
    Array.from({ length: count }, () => openMember(t, { capture })),
  );
  const answers = await Promise.all(
    members.map((member, index) =>
      member.does(
        'join',
        server.uri(ROOM, { camera: `card:${index + 1}`, microphone: `tone:${440 + index}` }),
      ),
    ),
  );
  assert.deepEqual(
    answers,
    members.map(() => ({ connected: true })),
  );
  return { server, members };
}

const details = (pictures) => pictures.map(({ card }) => card?.detail);

for (const [videocodec, codec] of CODECS) {
  test(`two processes receive each other's pictures in order as ${codec}`, async (t) => {
    const { members } = await meet(t, 2, { videocodec });
    const seen = await Promise.all(members.map((member) => member.does('pictures', remote(0), 30)));
    assert.deepEqual(seen.map(details), [Array(30).fill(2), Array(30).fill(1)]);
    for (const pictures of seen) {
      for (const [index, { width, height, frameId, card }] of pictures.entries()) {
        assert.deepEqual([width, height], [640, 360]);
        if (index === 0) continue;
        assert.ok(frameId > pictures[index - 1].frameId, 'frames are numbered in order');
        assert.ok(card.number > pictures[index - 1].card.number, 'pictures arrive in order');
      }
    }
  });

  test(`muting ${codec} clears the picture at the others, and unmuting restores it`, async (t) => {
    const { members } = await meet(t, 2, { videocodec });
    const [first, second] = members;
    const { csrc } = await second.does('picture', remote(0));
    await first.does('call', 'muteLocalVideo', true);
    await first.does('seen', 'mediaMuteState', { mediaType: 'video', muted: true });
    await Promise.all([first.does('cleared', LOCAL), second.does('cleared', remote(0))]);
    await second.does('seen', 'streamUpdated', { ...remote(0), csrc });

    await first.does('call', 'muteLocalVideo', false);
    const [picture] = await second.does('pictures', remote(0), 1);
    assert.equal(picture.card?.detail, 1);
  });

  test(`a picture whose size is not a multiple of eight arrives whole as ${codec}`, async (t) => {
    const capture = { width: 322, height: 182, maxFPS: 15 };
    const { members } = await meet(t, 2, { capture, videocodec });
    const pictures = await members[0].does('pictures', remote(0), 5);
    assert.deepEqual(details(pictures), Array(5).fill(2));
    for (const { width, height } of pictures) assert.deepEqual([width, height], [322, 182]);
  });
}

test('a room whose only codec the engine does not have gets no video, and the log says so', async (t) => {
  const { members } = await meet(t, 2, { videocodec: 'vp9' });
  const [first, second] = members;
  // 0 is the csrc of a participant without video.
  await second.does('seen', 'streamAdded', { ...remote(0), csrc: 0 });
  assert.equal(await second.does('hasPicture', remote(0)), false);
  await first.does('logged', 'the room takes no video in an encoding of ours');
});

test('a participant who leaves is removed at the others, and may join again', async (t) => {
  const { server, members } = await meet(t, 2);
  const [first, second] = members;
  await second.does('picture', remote(0));
  assert.deepEqual(await first.does('leave'), { callId: 1, ...LEFT });
  await second.does('seen', 'streamRemoved', remote(0));

  await second.does('forget');
  const again = server.uri(ROOM, { camera: 'card:9', microphone: 'tone:440' });
  assert.deepEqual(await first.does('join', again), { connected: true });
  await second.does('seen', 'streamAdded', remote(0));
  const { card } = await second.does('picture', remote(0));
  assert.equal(card?.detail, 9);
});

test("four processes receive each other's pictures", async (t) => {
  const { members } = await meet(t, 4, { capture: { width: 320, height: 180, maxFPS: 15 } });
  const seen = await Promise.all(
    members.map((member) =>
      Promise.all([0, 1, 2].map((index) => member.does('picture', remote(index)))),
    ),
  );
  for (const [index, pictures] of seen.entries()) {
    const others = [1, 2, 3, 4].filter((detail) => detail !== index + 1);
    assert.deepEqual(details(pictures).sort(), others);
  }
});

test('a clip that replaces the camera is received', async (t) => {
  const { server, members } = await meet(t, 1);
  const clip = path.join(temporaryDirectory(t), 'camera.y4m');
  writeCardClip(clip, { width: 320, height: 180, detail: 99 });
  const player = await openMember(t);
  await player.does('join', server.uri(ROOM, { camera: clip, microphone: 'tone:440' }));
  const [{ width, height, card }] = await members[0].does('pictures', remote(0), 1);
  assert.deepEqual([width, height, card?.detail], [320, 180, 99]);
});

test('the microphone has a level unless it is muted, which is logged on request', async (t) => {
  const { members } = await meet(t, 1);
  const [member] = members;
  // A sine of 0.3 is -13.5 dB. On a busy machine parts of it are left out.
  await member.does('seen', 'micLevel', { level: 78 });
  assert.doesNotMatch(await member.does('log'), /microphone level/);
  await member.does('call', 'setAudioDebug', true);
  await member.does('logged', 'microphone level 78');
  await member.does('call', 'muteLocalAudio', true);
  await member.does('seen', 'mediaMuteState', { mediaType: 'audio', muted: true });
  const { csrc } = await member.does('picture', LOCAL);
  assert.ok(csrc > 0);
});

test('an engine destroyed during a call leaves no thread, and no stream at the others', async (t) => {
  const { members } = await meet(t, 2);
  const [first, second] = members;
  await second.does('picture', remote(0));
  await first.does('call', 'destroy');
  await second.does('seen', 'streamRemoved', remote(0));
  await first.does('threadsGone');
});
