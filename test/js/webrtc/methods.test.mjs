// The effect of each method of the wrapper in a room of a real SFU, as another participant, the
// server or the person at the machine observes it. The other files of this folder test many of them
// in detail.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { CameraServer } from '../../support/camera_server.mjs';
import { startMonitoredServer } from '../../support/janus_monitor.mjs';
import { METHODS } from '../../support/scripted/method_table.mjs';
import { ScreenServer, yuvOf } from '../../support/screen_server.mjs';
import { SoundServer, shareOf } from '../../support/sound_server.mjs';
import { CONTENT, LOCAL, remote } from '../../support/streams.mjs';
import { openMember } from '../../support/webrtc_room.mjs';

const ROOM = 'meeting';
const [LOW, HIGH, OTHERS] = [500, 1_500, 880];
const MONITORS = [
  [640, 480],
  [800, 480],
];
const GREEN = '#20c040';
const SMALL = { width: 320, height: 180 };
const EVERYTHING = {
  ...{ contentStreamEnabled: true, incomingAudioEnabled: true, incomingVideoEnabled: true },
  ...{ outgoingAudioMuted: false, outgoingVideoMuted: false },
};
const PARTICIPANTS = { eventName: 'participants', mimeType: 'application', mimeSubType: 'json' };

const camera = (videoDeviceId, { width, height } = SMALL) => ({
  ...{ videoDeviceId, videoDeviceName: '' },
  capability: { width, height, maxFPS: 30 },
});
const microphone = (audioInId) => ({ audioInId, audioInName: '', audioInSourceName: '' });
const speaker = (audioOutId) => ({ audioOutId, audioOutName: '', audioOutSourceName: '' });

const isTone = (hertz) => (samples) => shareOf(hertz, samples) > 0.5;
const isSilence = (samples) => samples.every((sample) => sample === 0);

// Ada has the devices of `ours`, and the methods that are tested are hers. Zoë has a test card, a
// tone and the speaker of `theirs`.
async function open(t) {
  const { server, monitor } = await startMonitoredServer(t, { rooms: { [ROOM]: {} } });
  const ours = await SoundServer.start(t, { speakers: ['left', 'right'] });
  const theirs = await SoundServer.start(t);
  await ours.plugMicrophone('low', LOW);
  await ours.plugMicrophone('high', HIGH);
  const cameras = await CameraServer.start(t);
  for (const name of ['first', 'second']) await cameras.plug(name);
  const screens = await ScreenServer.start(t, MONITORS);
  await screens.paint(GREEN);
  const ada = await openMember(t, {
    capture: SMALL,
    environment: { ...ours.environment, ...cameras.environment, ...screens.environment },
  });
  const zoe = await openMember(t, { environment: theirs.environment });
  const room = { t, server, monitor, ours, theirs, ada, zoe };
  return { ...room, call: (...args) => ada.does('call', ...args) };
}

const joinAs = (member, server, endpointName, sources) =>
  member.does('join', server.uri(ROOM, sources), { endpointName });

// Settles when a picture of the stream has this width.
async function hasWidth(member, stream, width) {
  for (let frameId = 0, picture; picture?.width !== width; { frameId } = picture) {
    picture = await member.does('picture', stream, frameId);
  }
}

// The methods of a row are called in its test, in the state that the rows above leave behind: Zoë is
// in the room from the beginning, and Ada from 'connectCall' to 'disconnectCall'. The last engine that
// is destroyed is Zoë's.
const ROWS = [
  [
    ['on', 'enableCameraCapture'],
    'the local stream is announced to a listener, and shows the camera',
    async ({ ada, call }) => {
      await ada.does('picture', LOCAL);
      await ada.does('listen', 'streamRemoved');
      await call('enableCameraCapture', false);
      const { type, streamIndex } = await ada.does('listened');
      assert.deepEqual({ type, streamIndex }, LOCAL);
      await ada.does('cleared', LOCAL);
      await call('enableCameraCapture', true);
      await ada.does('picture', LOCAL);
    },
  ],
  [
    ['connectCall', 'getFrame', 'getLastFrame', 'releaseFrame'],
    'both see each other',
    async ({ server, ada, zoe, call }) => {
      assert.deepEqual(await joinAs(ada, server, 'Ada'), { connected: true });
      await hasWidth(zoe, remote(0), SMALL.width);
      const { card } = await ada.does('picture', remote(0));
      assert.equal(card?.detail, 2);
      const { frameId, ...last } = await ada.does('lastPicture', remote(0));
      assert.deepEqual(last.card, card);
      await call('releaseFrame', remote(0));
      await ada.does('picture', remote(0), frameId);
    },
  ],
  [
    ['muteLocalVideo'],
    'the other has no picture until the video is unmuted',
    async ({ zoe, call }) => {
      await call('muteLocalVideo', true);
      await zoe.does('cleared', remote(0));
      await zoe.does('knows', 'Ada', { videoMuted: true });
      await call('muteLocalVideo', false);
      await zoe.does('picture', remote(0));
    },
  ],
  [
    ['setAudioInDevice'],
    'the other hears another microphone',
    async ({ t, theirs, call }) => {
      for (const [id, tone] of [
        ['low', LOW],
        ['high', HIGH],
      ]) {
        await call('setAudioInDevice', microphone(id));
        await theirs.hears(t, isTone(tone));
      }
    },
  ],
  [
    ['muteLocalAudio'],
    'the other hears silence until the audio is unmuted',
    async ({ t, theirs, zoe, call }) => {
      await call('muteLocalAudio', true);
      await zoe.does('knows', 'Ada', { audioMuted: true });
      await theirs.hears(t, isSilence);
      await call('muteLocalAudio', false);
      await theirs.hears(t, isTone(HIGH));
    },
  ],
  [
    ['setAudioOutDevice'],
    'another speaker plays the others',
    async ({ t, ours, call }) => {
      for (const id of ['left', 'right']) {
        await call('setAudioOutDevice', speaker(id));
        await ours.hears(t, isTone(OTHERS), id);
      }
    },
  ],
  [
    ['setRemoteAudioMute'],
    'the speaker is silent until the others are unmuted',
    async ({ t, ours, call }) => {
      await call('setRemoteAudioMute', true);
      await ours.hears(t, isSilence, 'right');
      await call('setRemoteAudioMute', false);
      await ours.hears(t, isTone(OTHERS), 'right');
    },
  ],
  [
    ['setVideoDevice'],
    'the other sees the camera in the size that was asked for',
    async ({ ada, zoe, call }) => {
      await call('setVideoDevice', camera('second', { width: 480, height: 270 }));
      await ada.does('logged', 'uses second');
      await hasWidth(zoe, remote(0), 480);
    },
  ],
  [
    ['selectDevices'],
    'all three devices are used',
    async ({ t, ours, theirs, ada, zoe, call }) => {
      const { length } = await ada.does('log');
      await call('selectDevices', {
        videoDevice: camera('first'),
        audioInDevice: microphone('low'),
        audioOutDevice: speaker('left'),
      });
      await ada.does('logged', 'uses first', length);
      await hasWidth(zoe, remote(0), SMALL.width);
      await theirs.hears(t, isTone(LOW));
      await ours.hears(t, isTone(OTHERS), 'left');
    },
  ],
  [
    ['updateMediaStreamState'],
    'what is not to be received is not sent',
    async ({ monitor, ada, call }) => {
      await call('updateMediaStreamState', { ...EVERYTHING, incomingVideoEnabled: false });
      await ada.does('cleared', remote(0));
      await monitor.standsStill('Zoë', 'video', ada);
      await call('updateMediaStreamState', EVERYTHING);
      await ada.does('picture', remote(0));
    },
  ],
  [
    ['updateVideoStreamsState'],
    'a stream without a tile is not sent',
    async ({ monitor, ada, call }) => {
      const { csrc } = await ada.does('picture', remote(0));
      const wishes = (VideoStreamInfos) => ({
        VideoStreamState: { VideoStreamInfos, VideoOccupancyConstraints: [] },
      });
      await call('updateVideoStreamsState', wishes([]));
      await ada.does('cleared', remote(0));
      await monitor.standsStill('Zoë', 'video', ada);
      const info = { ssrc: csrc, participantSsrc: csrc, speakerGroup: 0, priority: 0 };
      await call('updateVideoStreamsState', wishes([info]));
      await ada.does('picture', remote(0));
    },
  ],
  [
    ['getConfigData', 'updateConfigData'],
    'the configuration limits the size of the others',
    async ({ ada, call }) => {
      await hasWidth(ada, remote(0), 640);
      const update = (data) => call('updateConfigData', { configData: JSON.stringify(data) });
      await update({ isVesperCapable: true, maxVOQualityIndex: 2 });
      await ada.does('seen', 'vspUpdateVOQI', { VSPVOQI: 2 });
      await hasWidth(ada, remote(0), SMALL.width);
      const { isVesperCapable, maxVOQualityIndex } = await call('getConfigData');
      assert.deepEqual([isVesperCapable, maxVOQualityIndex], [true, 2]);
      await update({ maxVOQualityIndex: 4 });
      await hasWidth(ada, remote(0), 640);
    },
  ],
  [
    ['configureMeetingStats', 'getMeetingStats'],
    'what is sent is measured, as the server does',
    async ({ monitor, ada, call }) => {
      await call('configureMeetingStats', { enable: true, timerDuration: 200 });
      const before = await monitor.received('Ada', 'video');
      await ada.does('statistics');
      const { video_send_stats: sent } = await ada.does('statistics');
      assert.equal(sent.length, 1);
      assert.ok(sent[0].total_bitrate_bps > 0);
      assert.ok((await monitor.received('Ada', 'video')).bytes > before.bytes);
    },
  ],
  [
    ['getScreenMonitorDetails'],
    'the monitors of the desktop are listed',
    async ({ ada }) =>
      assert.deepEqual(await ada.does('monitors', MONITORS.length), [
        { x: 0, y: 0, width: 640, height: 480 },
        { x: 640, y: 0, width: 800, height: 480 },
      ]),
  ],
  [
    ['requestContentShareToken', 'startPresentation'],
    'the other sees a monitor, and gets no token',
    async ({ ada, zoe, call }) => {
      const answered = (status) => ada.does('seen', 'screenShareStatus', { status });
      await call('requestContentShareToken');
      await answered('token_granted');
      await call('startPresentation', { type: 'screen', screenId: 1 });
      await answered('started');
      await zoe.does('shows', CONTENT, [{ at: [0.5, 0.5], yuv: yuvOf(GREEN) }]);
      await zoe.does('call', 'requestContentShareToken');
      await zoe.does('seen', 'screenShareStatus', { status: 'token_denied' });
    },
  ],
  [
    ['stopPresentation', 'releaseContentShareToken'],
    'the other sees the content no more, and gets the token',
    async ({ ada, zoe, call }) => {
      await call('stopPresentation');
      await zoe.does('seen', 'streamRemoved', CONTENT);
      await call('releaseContentShareToken');
      await ada.does('seen', 'screenShareStatus', { status: 'token_relinquished' });
      await zoe.does('call', 'requestContentShareToken');
      await zoe.does('seen', 'screenShareStatus', { status: 'token_granted' });
    },
  ],
  [
    ['setAudioDebug', 'sendAudioDeviceStats'],
    'levels and volumes are logged',
    async ({ ada, call }) => {
      await call('setAudioDebug', true);
      await ada.does('logged', 'microphone level ');
      const volumes = { speakerVolume: 70, micVolume: 80 };
      await call('sendAudioDeviceStats', { ...volumes, isSpeakerMuted: false, isMicMuted: true });
      await ada.does('logged', 'speaker volume 70');
    },
  ],
  [
    ['registerEvent', 'unregisterEvent'],
    'who is there is told for as long as the event is registered',
    async ({ ada, zoe, call }) => {
      await ada.does('knows', 'Zoë', { videoMuted: false });
      await call('unregisterEvent', { eventName: PARTICIPANTS.eventName });
      await ada.does('forget');
      await zoe.does('call', 'muteLocalVideo', true);
      await ada.does('cleared', remote(0));
      const told = (await ada.does('events')).filter(([name]) => name === 'eventNotify');
      assert.deepEqual(told, []);
      await zoe.does('call', 'muteLocalVideo', false);
    },
  ],
  [
    ['getSharedDataInfo', 'enterWidgetMode', 'exitWidgetMode'],
    'the pictures of another are shared for as long as the stream is in widget mode',
    async ({ ada, call }) => {
      await call('enterWidgetMode', remote(0));
      const card = await ada.does('sharedCard', remote(0));
      assert.equal(card?.detail, 2);
      await call('exitWidgetMode', remote(0));
      assert.equal(await ada.does('isShared', remote(0)), false);
    },
  ],
  [
    ['getMediaMeetingAttributes'],
    'a room has no attributes',
    async ({ call }) => assert.deepEqual(await call('getMediaMeetingAttributes'), []),
  ],
  [
    ['disconnectCall'],
    'the other sees who has left',
    async ({ ada, zoe }) => {
      await zoe.does('forget');
      assert.equal((await ada.does('leave')).code, 0);
      await zoe.does('seen', 'streamRemoved', remote(0));
    },
  ],
  [
    ['destroy'],
    'a call ends with its engine',
    async ({ server, ada, zoe }) => {
      await joinAs(ada, server, 'Ada');
      await ada.does('picture', remote(0));
      await ada.does('forget');
      await zoe.does('call', 'destroy');
      await ada.does('seen', 'streamRemoved', remote(0));
      await zoe.does('threadsGone');
    },
  ],
];

test('each method has its effect in a room', async (t) => {
  const room = await open(t);
  const { server, zoe } = room;
  const sources = { camera: 'card:2', microphone: `tone:${OTHERS}` };
  assert.deepEqual(await joinAs(zoe, server, 'Zoë', sources), { connected: true });
  for (const [names, effect, run] of ROWS) {
    await t.test(`${names.join(', ')}: ${effect}`, () => run(room));
  }
});

test('the table has every method', () => {
  const listed = ROWS.flatMap(([names]) => names);
  assert.deepEqual([...new Set(listed)].sort(), METHODS.map(({ name }) => name).sort());
});
