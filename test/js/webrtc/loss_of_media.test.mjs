// Media that stop arriving in a room of a real SFU, and arrive again.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { JanusAdministrator } from '../../support/janus_administrator.mjs';
import { startMonitoredServer } from '../../support/janus_monitor.mjs';
import { MediaRelay } from '../../support/media_relay.mjs';
import { remote } from '../../support/streams.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const SMALL = { width: 320, height: 180, maxFPS: 15 };
const source = (detail) => ({ camera: `card:${detail}`, microphone: 'tone:440' });

test('a connection that the server ends is replaced, and shows nothing until then', async (t) => {
  const { server, monitor } = await startMonitoredServer(t);
  const administrator = await JanusAdministrator.connect(t, server);
  const room = { room: 'meeting', secret: 's' };
  await administrator.ask({ request: 'create', ...room, pin: 'first' });
  const ada = await openMember(t, { capture: SMALL });
  const zoe = await openMember(t, { capture: SMALL });
  const uri = (detail) => server.uri('meeting', { ...source(detail), pin: 'first' });
  await ada.does('join', uri(1), { endpointName: 'Ada' });
  await zoe.does('join', uri(2), { endpointName: 'Zoë' });
  const { csrc } = await zoe.does('picture', remote(0));

  // With another pin the server refuses the next connections.
  await administrator.ask({ request: 'edit', ...room, new_pin: 'second' });
  await zoe.does('forget');
  await monitor.hangUp('subscriber', 'Ada');
  await zoe.does('seen', 'streamUpdated', { ...remote(0), csrc });
  assert.equal(await zoe.does('hasPicture', remote(0)), false);
  await zoe.does('cleared', remote(0));
  const refusal = 'participant 0 is not received: Unauthorized';
  const { length } = await zoe.does('log');
  await zoe.does('logged', refusal, length);
  await zoe.does('cleared', remote(0));
  const log = await zoe.does('log');
  await zoe.does('logged', refusal, log.indexOf(refusal, length) + refusal.length);

  await administrator.ask({ request: 'edit', ...room, new_pin: 'first' });
  const { card } = await zoe.does('picture', remote(0));
  assert.equal(card?.detail, 1);
  await zoe.does('knows', 'Ada', { videoMuted: false, speaking: true });
});

test('media that stop arriving are notified, and so is their return', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  const relay = await MediaRelay.start(t, server);
  const ada = await openMember(t, { capture: SMALL });
  const zoe = await openMember(t, { capture: SMALL });
  await ada.does('join', server.uri('meeting', source(1)));
  await zoe.does('join', relay.uri('meeting', source(2)));
  await zoe.does('picture', remote(0));
  await zoe.does('forget');

  relay.loses = (direction) => direction === 'down';
  await zoe.does('seen', 'noRtpMedia', { mediaType: 'video', up: false });
  await zoe.does('seen', 'noRtpMedia', { mediaType: 'audio', up: false });
  relay.loses = () => false;
  await zoe.does('seen', 'noRtpMedia', { mediaType: 'video', up: true });
  await zoe.does('seen', 'noRtpMedia', { mediaType: 'audio', up: true });
});
