// Meetings of several processes in a room of a real SFU. What a picture shows is read from its
// decoded pixels: the detail of a card's code is its sender's.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { LOCAL, openMember, remote, startServer } from '../../support/webrtc_room.mjs';

const LEFT = { reason: 'the call was left', code: 0 };

// Members of one room, the first one's card with the detail 1, and so on.
async function meet(t, count, { capture } = {}) {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const members = await Promise.all(Array.from({ length: count }, () => openMember(t, capture)));
  const answers = await Promise.all(
    members.map((member, index) =>
      member.does(
        'join',
        server.uri('meeting', { camera: `card:${index + 1}`, microphone: `tone:${440 + index}` }),
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

test('two processes see each other, picture by picture', async (t) => {
  const { members } = await meet(t, 2);
  const seen = await Promise.all(members.map((member) => member.does('pictures', remote(0), 30)));
  assert.deepEqual(seen.map(details), [Array(30).fill(2), Array(30).fill(1)]);
  for (const pictures of seen) {
    for (const [index, { width, height, frameId, card }] of pictures.entries()) {
      assert.deepEqual([width, height], [640, 360]);
      if (index === 0) continue;
      assert.ok(frameId > pictures[index - 1].frameId, 'frames are numbered in order');
      assert.ok(card.number > pictures[index - 1].card.number, 'pictures come in order');
    }
  }
});
