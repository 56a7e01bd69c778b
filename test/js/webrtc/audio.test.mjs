// The audio between the members of a room, identified by the tones that they send, at the speakers
// of a real sound server.

import { test } from 'node:test';

import { SoundServer, shareOf } from '../../support/sound_server.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const TONES = [440, 660, 880];

test('everybody hears the tones of the others, and not their own', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const speakers = await Promise.all(TONES.map(() => SoundServer.start(t)));
  const members = await Promise.all(
    speakers.map(({ environment }) => openMember(t, { environment })),
  );
  const uris = TONES.map((hertz) => server.uri('meeting', { microphone: `tone:${hertz}` }));
  await Promise.all(members.map((member, index) => member.does('join', uris[index])));

  const heard = (samples) => TONES.filter((hertz) => shareOf(hertz, samples) > 0.2);
  const others = TONES.map((own) => TONES.filter((hertz) => hertz !== own));
  await Promise.all(
    speakers.map((speaker, index) =>
      speaker.hears(t, (samples) => `${heard(samples)}` === `${others[index]}`),
    ),
  );

  await members[0].does('call', 'muteLocalAudio', true);
  await speakers[1].hears(t, (samples) => `${heard(samples)}` === '880');

  await members[2].does('call', 'setRemoteAudioMute', true);
  await speakers[2].hears(t, (samples) => samples.every((sample) => sample === 0));
});
