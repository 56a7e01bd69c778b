// What is the same with every engine, with the one for real meetings.

import { openMember, startServer } from '../../support/webrtc_room.mjs';

process.env.TESSEL_TEST_ENGINE = 'webrtc';
process.env.PULSE_SERVER = 'unix:/nowhere';
const { testAnyEngine } = await import('../../support/any_engine.mjs');

testAnyEngine(async (t, others) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const uri = (detail) =>
    server.uri('meeting', { camera: `card:${detail}`, microphone: 'tone:440' });
  for (let detail = 1; detail <= others; ++detail) {
    const member = await openMember(t, { capture: { width: 320, height: 180, maxFPS: 15 } });
    await member.does('join', uri(detail));
  }
  return uri(0);
});
