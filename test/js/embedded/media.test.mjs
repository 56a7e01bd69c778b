// Local and remote media on the embedded engine, as the uri and the method calls determine them:
// devices, mutes and links.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { readCard } from '../../support/card_code.mjs';
import { Meeting } from '../../support/embedded_meeting.mjs';
import { CONTENT, LOCAL, remote } from '../../support/streams.mjs';

const SMALL = 'tessel:room?participants=1&size=64x36';

const cameraOf = (frame) => readCard(frame).detail;

const select = {
  setVideoDevice: (id, capability = {}) => ({
    videoDeviceId: id,
    videoDeviceName: '',
    capability,
  }),
  setAudioInDevice: (id) => ({ audioInId: id, audioInName: '', audioInSourceName: '' }),
  setAudioOutDevice: (id) => ({ audioOutId: id, audioOutName: '', audioOutSourceName: '' }),
};

const logged = (meeting, text) => meeting.until(() => meeting.log().includes(`Z ${text}\n`));

// ---- Devices

test('selecting a device that does not exist is logged and changes nothing', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(`${SMALL}&speak=me@0-1000`);
  meeting.wrapper.enableCameraCapture(true);
  meeting.wrapper.setVideoDevice(select.setVideoDevice('camera-1'));
  await meeting.seen('streamUpdated', ({ type }) => type === 'local');
  meeting.forget();
  for (const [method, make] of Object.entries(select)) {
    meeting.wrapper[method](make(`no-${method}`));
    await logged(meeting, `there is no device no-${method}`);
  }
  meeting.wrapper.selectDevices({
    videoDevice: select.setVideoDevice('camera-7'),
    audioInDevice: select.setAudioInDevice('camera-0'),
    audioOutDevice: select.setAudioOutDevice('speaker-2'),
  });
  for (const id of ['camera-7', 'camera-0', 'speaker-2']) {
    await logged(meeting, `there is no device ${id}`);
  }
  assert.deepEqual(meeting.payloads('streamUpdated'), []);
  const { frameId } = await meeting.nextFrame(LOCAL);
  assert.equal(cameraOf(await meeting.nextFrame(LOCAL, frameId)), 1);
  meeting.forget();
  await meeting.seen('micLevel', ({ level }) => level > 0);
});

test('selecting a size or rate that the camera lacks is logged and changes nothing', async (t) => {
  const meeting = new Meeting(t);
  meeting.wrapper.enableCameraCapture(true);
  await meeting.nextFrame(LOCAL);
  for (const [capability, text] of [
    [{ width: 63 }, '63x720 at 30'],
    [{ height: 3841 }, '1280x3841 at 30'],
    [{ maxFPS: 0 }, '1280x720 at 0'],
    [{ maxFPS: 61 }, '1280x720 at 61'],
  ]) {
    meeting.wrapper.setVideoDevice(select.setVideoDevice('camera-1', capability));
    await logged(meeting, `no camera captures ${text}`);
  }
  assert.deepEqual(meeting.payloads('streamUpdated'), []);
  const frame = await meeting.nextFrame(LOCAL);
  assert.deepEqual([frame.width, frame.height, cameraOf(frame)], [1280, 720, 0]);
});

test('an empty identifier selects the first device', async (t) => {
  const meeting = new Meeting(t);
  meeting.wrapper.enableCameraCapture(true);
  meeting.wrapper.setVideoDevice(select.setVideoDevice('camera-1'));
  await meeting.frameWhere(LOCAL, (frame) => cameraOf(frame) === 1);
  meeting.wrapper.setVideoDevice(select.setVideoDevice(''));
  await meeting.frameWhere(LOCAL, (frame) => cameraOf(frame) === 0);
});

test('a camera that is selected before capture starts captures later', async (t) => {
  const meeting = new Meeting(t);
  meeting.wrapper.setVideoDevice(select.setVideoDevice('camera-1', { width: 320, height: 180 }));
  await logged(meeting, 'selected camera-1');
  assert.deepEqual(meeting.payloads('streamUpdated'), []);
  meeting.wrapper.enableCameraCapture(true);
  const frame = await meeting.nextFrame(LOCAL);
  assert.deepEqual([frame.width, frame.height, cameraOf(frame)], [320, 180, 1]);
});

test('devices are plugged and unplugged as the uri says, and another device replaces a removed one', async (t) => {
  const meeting = new Meeting(t);
  meeting.wrapper.enableCameraCapture(true);
  await meeting.frameWhere(LOCAL, (frame) => cameraOf(frame) === 0);
  await meeting.join(
    `${SMALL}&unplug=camera-0@0,microphone-1@0,speaker-0@0&plug=camera-2@0,camera-1@0`,
  );
  await meeting.frameWhere(LOCAL, (frame) => cameraOf(frame) === 1);
  await meeting.seen('deviceChange', ({ id }) => id === 'camera-2');
  assert.deepEqual(meeting.payloads('deviceChange'), [
    { id: 'camera-0', type: 'video' },
    { id: 'microphone-1', type: 'audioIn' },
    { id: 'speaker-0', type: 'audioOut' },
    { id: 'camera-2', type: 'video' },
  ]);
  meeting.wrapper.setVideoDevice(select.setVideoDevice('camera-2'));
  await meeting.frameWhere(LOCAL, (frame) => cameraOf(frame) === 2);
  meeting.forget();
  await meeting.leave();
  assert.equal(meeting.payloads('deviceChange').length, 4, 'all are again as before the call');
  await meeting.frameWhere(LOCAL, (frame) => cameraOf(frame) === 0);
});

test('without a camera there are no local frames, and without a microphone no levels', async (t) => {
  const meeting = new Meeting(t);
  meeting.wrapper.enableCameraCapture(true);
  await meeting.nextFrame(LOCAL);
  const gone = ['camera-0', 'camera-1', 'microphone-0', 'microphone-1'];
  await meeting.join(`${SMALL}&unplug=${gone.map((id) => `${id}@0`)}`);
  await meeting.seen('deviceChange', ({ id }) => id === 'microphone-1');
  meeting.forget();
  // A second, in which five levels would arrive.
  await meeting.passes(remote(0), 30);
  assert.ok(meeting.showsNothing(LOCAL));
  assert.deepEqual(meeting.payloads('micLevel'), []);
});

// ---- Mutes that the uri plans

test('a mute by the meeting is notified, and the local participant may unmute', async (t) => {
  const meeting = new Meeting(t);
  meeting.wrapper.enableCameraCapture(true);
  const { frameId } = await meeting.nextFrame(LOCAL);
  await meeting.join(`${SMALL}&speak=me@0-1000&videomute=me@0&audiomute=me@0-1`);
  await meeting.seen('mediaMuteState', ({ mediaType }) => mediaType === 'audio');
  assert.deepEqual(meeting.payloads('mediaMuteState'), [
    { mediaType: 'video', muted: true },
    { mediaType: 'audio', muted: true },
  ]);
  assert.ok(meeting.showsNothing(LOCAL));
  meeting.forget();
  assert.deepEqual(await meeting.seen('mediaMuteState'), { mediaType: 'audio', muted: false });
  assert.deepEqual(meeting.payloads('micLevel'), [], 'nothing was heard in between');
  await meeting.seen('micLevel', ({ level }) => level > 0);
  assert.ok(meeting.showsNothing(LOCAL));
  meeting.wrapper.muteLocalVideo(false);
  await meeting.nextFrame(LOCAL, frameId);
});

test('a participant who mutes the video shows nothing until it is on again', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(`${SMALL}&videomute=0@1-4`);
  const { frameId } = await meeting.nextFrame(remote(0));
  await meeting.seen('streamUpdated');
  assert.ok(meeting.showsNothing(remote(0)));
  meeting.forget();
  await meeting.seen('streamUpdated');
  await meeting.nextFrame(remote(0), frameId);
});

const outputLevel = (meeting) => meeting.wrapper.getMeetingStats().audio_stats.output_level;

test('a participant who mutes the audio is not heard', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(`${SMALL}&speak=0@0-1000&audiomute=0@2`);
  meeting.wrapper.configureMeetingStats({ enable: true, timerDuration: 100 });
  await meeting.until(() => outputLevel(meeting) > 0);
  await meeting.until(() => outputLevel(meeting) === 0);
});

test('remote audio that is switched off is not heard', async (t) => {
  const meeting = new Meeting(t);
  const incoming = (incomingAudioEnabled) =>
    meeting.wrapper.updateMediaStreamState({
      contentStreamEnabled: true,
      incomingAudioEnabled,
      incomingVideoEnabled: true,
      outgoingAudioMuted: false,
      outgoingVideoMuted: false,
    });
  await meeting.join(`${SMALL}&speak=0@0-1000`);
  meeting.wrapper.configureMeetingStats({ enable: true, timerDuration: 100 });
  await meeting.until(() => outputLevel(meeting) > 0);
  incoming(false);
  await meeting.until(() => outputLevel(meeting) === 0);
  incoming(true);
  await meeting.until(() => outputLevel(meeting) > 0);
});

test('without a loudspeaker nobody is heard', async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(`${SMALL}&speak=0@0-1000&unplug=speaker-0@2,speaker-1@2`);
  meeting.wrapper.configureMeetingStats({ enable: true, timerDuration: 100 });
  await meeting.until(() => outputLevel(meeting) > 0);
  await meeting.until(() => outputLevel(meeting) === 0);
  const gone = await meeting.seen('deviceChange', ({ id }) => id === 'speaker-1');
  assert.equal(gone.type, 'audioOut');
});

// ---- Links

test("the loss of a participant's media and its return are notified", async (t) => {
  const meeting = new Meeting(t);
  await meeting.join(`${SMALL}&present=0@0&cut=0@1-4`);
  await meeting.nextFrame(remote(0));
  await meeting.nextFrame(CONTENT);
  await meeting.seen('noRtpMedia', ({ mediaType }) => mediaType === 'content');
  const media = (up) => ['video', 'audio', 'content'].map((mediaType) => ({ mediaType, up }));
  assert.deepEqual(meeting.payloads('noRtpMedia'), media(false));
  assert.ok(meeting.showsNothing(remote(0)));
  assert.ok(meeting.showsNothing(CONTENT));
  await meeting.seen('noRtpMedia', ({ mediaType, up }) => mediaType === 'content' && up);
  assert.deepEqual(meeting.payloads('noRtpMedia'), [...media(false), ...media(true)]);
  await meeting.nextFrame(remote(0));
  await meeting.nextFrame(CONTENT);
});
