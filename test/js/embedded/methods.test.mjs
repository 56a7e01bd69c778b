// The effect of each method of the wrapper in a meeting on the embedded engine. The other files of
// this folder test layouts, media, content and statistics in detail.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { METHODS } from '../../support/scripted/method_table.mjs';
import { readCard } from '../../support/card_code.mjs';
import { Meeting, TesselWrapper, TesselWrapperProxy } from '../../support/embedded_meeting.mjs';
import { CONTENT, LOCAL, remote } from '../../support/streams.mjs';

const FACTORY_SETTER = '_internal_setEmitterFactory';

const shown = new Set(); // the names of the methods whose effect was seen

// Tests an effect of these methods of the wrapper: `run` gets a fresh meeting and has to call them
// all.
function effect(methods, sentence, run) {
  test(`${methods.join(', ')}: ${sentence}`, async (t) => {
    const meeting = new Meeting(t);
    await run(meeting);
    for (const name of methods) {
      assert.ok(meeting.called.has(name), `${name} was called`);
      shown.add(name);
    }
  });
}

const SMALL = 'tessel:room?participants=1&size=64x36';

const isPicture = ({ noUpdate }) => !noUpdate;
const isAudio = ({ mediaType }) => mediaType === 'audio';
const isVideo = ({ mediaType }) => mediaType === 'video';

// ---- Frames for a second process. First, because the names of segments depend on the second in
// which they are made: no other wrapper of this process has this one's names.

effect(
  ['getSharedDataInfo', 'enterWidgetMode', 'exitWidgetMode'],
  'a proxy reads the frames of a stream for as long as it is in widget mode',
  async (meeting) => {
    await meeting.join(SMALL);
    const proxy = new TesselWrapperProxy(meeting.wrapper.getSharedDataInfo());
    assert.ok(proxy.getFrame(remote(0), 0).noUpdate, 'it is not yet shared');
    meeting.wrapper.enterWidgetMode(remote(0));
    const [size, card] = await meeting.until(() => {
      const frame = proxy.getFrame(remote(0), 0);
      // Before the first picture has been copied its size is 0.
      const seen = frame.width > 0 && [[frame.width, frame.height], readCard(frame)];
      proxy.releaseFrame(remote(0));
      return seen;
    });
    assert.deepEqual(size, [64, 36]);
    assert.deepEqual({ type: card.type, streamIndex: card.streamIndex }, remote(0));
    meeting.wrapper.exitWidgetMode(remote(0));
    assert.ok(proxy.getFrame(remote(0), 0).noUpdate, 'it is not shared any more');
  },
);

// ---- Construction and destruction

test(`${FACTORY_SETTER}: a wrapper emits on the object that the factory made for it`, async (t) => {
  const meeting = new Meeting(t);
  const later = new Meeting(t);
  await meeting.join(SMALL);
  assert.notDeepEqual(meeting.events, []);
  assert.deepEqual(later.events, []);
  TesselWrapper[FACTORY_SETTER](() => later.emitter);
  await meeting.leave();
  assert.deepEqual(later.events, [], 'a factory is for the wrappers that are made after it');
  shown.add(FACTORY_SETTER);
});

effect(['on'], 'a listener is given the payload of its event', async (meeting) => {
  const payload = new Promise((resolve) => {
    meeting.wrapper.on('callConnectionStatus', resolve);
  });
  meeting.connect(SMALL);
  assert.deepEqual(await payload, { connected: true });
});

effect(['destroy'], 'the engine is shut down, and every stream is over', async (meeting) => {
  await meeting.join(SMALL);
  await meeting.nextFrame(remote(0));
  meeting.wrapper.destroy();
  assert.match(meeting.log(), / de-initialised\n$/);
  assert.ok(meeting.showsNothing(remote(0)));
});

// ---- The call

effect(['connectCall'], 'a meeting is joined, with all that was asked for', async (meeting) => {
  const joined = await meeting.join(SMALL, {
    gracefulEvents: [
      { event: 'wanted', enabled: true },
      { event: 'unwanted', enabled: false },
    ],
    mediaStreamState: {
      contentStreamEnabled: true,
      incomingAudioEnabled: true,
      incomingVideoEnabled: true,
      outgoingAudioMuted: true,
      outgoingVideoMuted: true,
    },
  });
  assert.equal(joined, true);
  assert.deepEqual((await meeting.nextFrame(remote(0))).width, 64);
  await meeting.seen('gracefulEvent');
  assert.deepEqual(meeting.payloads('gracefulEvent'), [{ event: 'wanted', enable: true }]);
  assert.deepEqual(meeting.payloads('mediaMuteState'), [
    { mediaType: 'video', muted: true },
    { mediaType: 'audio', muted: true },
  ]);
});

effect(['disconnectCall'], 'the meeting is left, and its streams are over', async (meeting) => {
  await meeting.join(SMALL);
  await meeting.nextFrame(remote(0));
  meeting.wrapper.disconnectCall();
  const left = await meeting.seen('callDisconnect');
  assert.deepEqual(left, { callId: 1, reason: 'the call was left', code: 0 });
  assert.equal(meeting.payloads('streamRemoved').length, 1);
  assert.ok(meeting.showsNothing(remote(0)));
});

// ---- Media

effect(
  ['updateMediaStreamState'],
  'remote video and content are received only when enabled',
  async (meeting) => {
    await meeting.join(`${SMALL}&present=0@0`);
    const state = {
      contentStreamEnabled: true,
      incomingAudioEnabled: true,
      incomingVideoEnabled: true,
      outgoingAudioMuted: false,
      outgoingVideoMuted: false,
    };
    for (const [flag, stream] of [
      ['incomingVideoEnabled', remote(0)],
      ['contentStreamEnabled', CONTENT],
    ]) {
      await meeting.nextFrame(stream);
      meeting.forget();
      meeting.wrapper.updateMediaStreamState({ ...state, [flag]: false });
      await meeting.seen('streamUpdated', ({ type }) => type === stream.type);
      assert.ok(meeting.showsNothing(stream), flag);
      meeting.wrapper.updateMediaStreamState(state);
      await meeting.nextFrame(stream);
    }
  },
);

effect(['updateMediaStreamState'], 'a mute is notified only when it is one', async (meeting) => {
  const state = {
    contentStreamEnabled: true,
    incomingAudioEnabled: true,
    incomingVideoEnabled: true,
    outgoingAudioMuted: true,
    outgoingVideoMuted: false,
  };
  await meeting.join(SMALL);
  meeting.wrapper.updateMediaStreamState(state);
  meeting.wrapper.updateMediaStreamState(state);
  meeting.wrapper.updateMediaStreamState({ ...state, outgoingVideoMuted: true });
  await meeting.seen('mediaMuteState', isVideo);
  assert.deepEqual(meeting.payloads('mediaMuteState'), [
    { mediaType: 'audio', muted: true },
    { mediaType: 'video', muted: true },
  ]);
});

effect(['muteLocalVideo'], 'no local frames arrive until the video is unmuted', async (meeting) => {
  await meeting.join(SMALL);
  meeting.wrapper.enableCameraCapture(true);
  const { frameId } = await meeting.nextFrame(LOCAL);
  meeting.wrapper.muteLocalVideo(true);
  assert.deepEqual(await meeting.seen('mediaMuteState'), { mediaType: 'video', muted: true });
  assert.ok(meeting.showsNothing(LOCAL));
  await meeting.passes(remote(0), 15);
  assert.ok(meeting.showsNothing(LOCAL), 'not while the others go on, either');
  meeting.forget();
  meeting.wrapper.muteLocalVideo(false);
  assert.deepEqual(await meeting.seen('mediaMuteState'), { mediaType: 'video', muted: false });
  await meeting.nextFrame(LOCAL, frameId);
});

effect(['muteLocalAudio'], 'no level is reported until the audio is on again', async (meeting) => {
  await meeting.join(`${SMALL}&speak=me@0-1000`);
  await meeting.seen('micLevel', ({ level }) => level > 0);
  meeting.wrapper.muteLocalAudio(true);
  assert.deepEqual(await meeting.seen('mediaMuteState'), { mediaType: 'audio', muted: true });
  meeting.forget();
  // A second, in which five levels would arrive.
  await meeting.passes(remote(0), 30);
  assert.deepEqual(meeting.payloads('micLevel'), []);
  meeting.wrapper.muteLocalAudio(false);
  await meeting.seen('micLevel', ({ level }) => level > 0);
  assert.deepEqual(meeting.payloads('mediaMuteState'), [{ mediaType: 'audio', muted: false }]);
});

const outputLevel = (meeting) => meeting.wrapper.getMeetingStats().audio_stats.output_level;

effect(['setRemoteAudioMute'], 'the others are not heard while they are muted', async (meeting) => {
  await meeting.join(`${SMALL}&speak=0@0-1000`);
  meeting.wrapper.configureMeetingStats({ enable: true, timerDuration: 100 });
  await meeting.until(() => outputLevel(meeting) > 0);
  meeting.wrapper.setRemoteAudioMute(true);
  await meeting.until(() => outputLevel(meeting) === 0);
  meeting.wrapper.setRemoteAudioMute(false);
  await meeting.until(() => outputLevel(meeting) > 0);
  assert.deepEqual(meeting.payloads('mediaMuteState').filter(isAudio), []);
});

effect(
  ['enableCameraCapture'],
  'local frames start and stop, with and without a call',
  async (meeting) => {
    assert.ok(!isPicture(meeting.wrapper.getFrame(LOCAL, 0)));
    meeting.wrapper.enableCameraCapture(true);
    const frame = await meeting.nextFrame(LOCAL);
    assert.deepEqual([frame.width, frame.height], [1280, 720]);
    const { type, streamIndex, detail } = readCard(frame);
    assert.deepEqual({ type, streamIndex, detail }, { ...LOCAL, detail: 0 });
    meeting.wrapper.enableCameraCapture(false);
    const { csrc, ...removed } = await meeting.seen('streamRemoved');
    assert.deepEqual(removed, LOCAL);
    assert.deepEqual(meeting.payloads('streamAdded'), [{ ...LOCAL, csrc }]);
    assert.ok(meeting.showsNothing(LOCAL));
  },
);

// ---- Content

effect(
  ['requestContentShareToken', 'startPresentation', 'stopPresentation', 'releaseContentShareToken'],
  'content is shared with the token, from its start to its end',
  async (meeting) => {
    await meeting.join('tessel:room?participants=0');
    const steps = [
      [() => meeting.wrapper.requestContentShareToken(), 'token_granted'],
      [() => meeting.wrapper.startPresentation({ type: 'window', windowId: 42 }), 'started'],
      [() => meeting.nextFrame(CONTENT)],
      [() => meeting.wrapper.stopPresentation(), 'stopped'],
      [() => meeting.wrapper.releaseContentShareToken(), 'token_relinquished'],
    ];
    for (const [step, status] of steps) {
      await step();
      if (status) await meeting.seen('screenShareStatus', (answer) => answer.status === status);
    }
    assert.deepEqual(
      meeting.payloads('screenShareStatus').map(({ status }) => status),
      steps.flatMap(([, status]) => status ?? []),
    );
    assert.equal(meeting.payloads('streamRemoved')[0].type, 'content');
    assert.ok(meeting.showsNothing(CONTENT));
  },
);

effect(
  ['getScreenMonitorDetails'],
  'during a call the monitors are those of the uri',
  async (meeting) => {
    const usual = [
      { x: 0, y: 0, width: 1920, height: 1080 },
      { x: 1920, y: 0, width: 1280, height: 720 },
    ];
    assert.deepEqual(meeting.wrapper.getScreenMonitorDetails(), usual);
    await meeting.join('tessel:room?participants=0&monitors=800x600@-800:20');
    assert.deepEqual(meeting.wrapper.getScreenMonitorDetails(), [
      { x: -800, y: 20, width: 800, height: 600 },
    ]);
    await meeting.leave();
    assert.deepEqual(meeting.wrapper.getScreenMonitorDetails(), usual);
  },
);

// ---- Devices

const audioIn = (audioInId) => ({ audioInId, audioInName: '', audioInSourceName: '' });
const audioOut = (audioOutId) => ({ audioOutId, audioOutName: '', audioOutSourceName: '' });
const camera = (videoDeviceId, capability) => ({ videoDeviceId, videoDeviceName: '', capability });

// Resolves when the log has a line with exactly this text after the time.
const logged = (meeting, text) => meeting.until(() => meeting.log().includes(`Z ${text}\n`));

effect(
  ['setVideoDevice'],
  'the selected camera captures with the requested settings',
  async (meeting) => {
    meeting.wrapper.enableCameraCapture(true);
    await meeting.nextFrame(LOCAL);
    const capability = { width: 321, height: 181, maxFPS: 60 };
    meeting.wrapper.setVideoDevice(camera('camera-1', capability));
    await meeting.seen('streamUpdated', ({ type }) => type === 'local');
    const frame = await meeting.frameWhere(LOCAL, ({ width }) => width === 321);
    assert.equal(frame.height, 181);
    assert.equal(readCard(frame).detail, 1);
  },
);

effect(['setAudioInDevice'], 'another microphone is selected', async (meeting) => {
  meeting.wrapper.setAudioInDevice(audioIn('microphone-1'));
  await logged(meeting, 'selected microphone-1');
});

effect(['setAudioOutDevice'], 'another loudspeaker is selected', async (meeting) => {
  meeting.wrapper.setAudioOutDevice(audioOut('speaker-1'));
  await logged(meeting, 'selected speaker-1');
});

effect(['selectDevices'], 'all three devices are selected', async (meeting) => {
  meeting.wrapper.enableCameraCapture(true);
  meeting.wrapper.selectDevices({
    videoDevice: camera('camera-1', {}),
    audioInDevice: audioIn('microphone-1'),
    audioOutDevice: audioOut('speaker-1'),
  });
  await logged(meeting, 'selected speaker-1');
  await logged(meeting, 'selected microphone-1');
  await meeting.frameWhere(LOCAL, (frame) => readCard(frame).detail === 1);
});

effect(['setAudioDebug'], 'the levels are logged while it is switched on', async (meeting) => {
  await meeting.join('tessel:room?participants=0&speak=me@0-1000');
  const levelsLogged = () => meeting.log().match(/ microphone level \d+$/gm)?.length ?? 0;
  await meeting.seen('micLevel');
  assert.equal(levelsLogged(), 0);
  meeting.wrapper.setAudioDebug(true);
  await meeting.until(() => levelsLogged() >= 2);
  meeting.wrapper.setAudioDebug(false);
  meeting.wrapper.setAudioInDevice(audioIn('microphone-1'));
  await logged(meeting, 'selected microphone-1');
  meeting.forget();
  const before = levelsLogged();
  await meeting.seen('micLevel');
  assert.equal(levelsLogged(), before);
});

effect(['sendAudioDeviceStats'], 'the volumes are logged', async (meeting) => {
  meeting.wrapper.sendAudioDeviceStats({
    isSpeakerMuted: false,
    speakerVolume: 70,
    isMicMuted: true,
    micVolume: 80,
  });
  await meeting.until(() =>
    /speaker volume 70(\.0*)?; microphone volume 80(\.0*)?, muted\n/.test(meeting.log()),
  );
});

// ---- Events

effect(
  ['registerEvent', 'unregisterEvent'],
  'an event arrives every second until it expires or is unregistered',
  async (meeting) => {
    const register = (eventName, expires, mimeType, mimeSubType) =>
      meeting.wrapper.registerEvent({ eventName, expires, mimeType, mimeSubType });
    register('roster', 3600, 'application', 'json');
    register('short', 2, 'text', 'plain');
    register('unwanted', 3600, 'text', 'plain');
    const bodies = (name) =>
      meeting
        .payloads('eventNotify')
        .filter(({ eventName }) => eventName === name)
        .map(({ eventBody }) => eventBody);
    await meeting.seen('eventNotify', ({ eventName }) => eventName === 'unwanted');
    meeting.wrapper.unregisterEvent({ eventName: 'unwanted' });
    await meeting.seen('eventNotify', ({ eventBody }) => eventBody.includes('"sequence":4'));
    assert.deepEqual(
      bodies('roster').map((body) => JSON.parse(body)),
      [1, 2, 3, 4].map((sequence) => ({ event: 'roster', sequence })),
    );
    assert.deepEqual(bodies('short'), ['short 1', 'short 2']);
    assert.deepEqual(bodies('unwanted'), ['unwanted 1']);
  },
);

// ---- Frames

effect(['getFrame'], "a participant's newest picture is there to be pulled", async (meeting) => {
  await meeting.join(SMALL);
  const { csrc } = await meeting.seen('streamAdded');
  const frame = await meeting.nextFrame(remote(0));
  assert.equal(frame.csrc, csrc);
  const { detail, ...card } = readCard(frame);
  assert.deepEqual({ ...card, detail }, { ...remote(0), number: frame.frameId, detail: 0 });
});

effect(['getLastFrame'], 'the picture pulled last is handed out again', async (meeting) => {
  await meeting.join(SMALL);
  assert.ok(meeting.wrapper.getLastFrame(remote(0)).clearFrame, 'none was pulled yet');
  const { frameId } = await meeting.nextFrame(remote(0));
  const last = meeting.wrapper.getLastFrame(remote(0));
  assert.equal(last.frameId, frameId);
  assert.equal(readCard(last).number, frameId);
});

effect(['releaseFrame'], 'a picture stays readable, and the next one arrives', async (meeting) => {
  await meeting.join(SMALL);
  const frame = await meeting.nextFrame(remote(0));
  const before = Buffer.from(frame.yPlaneBuffer);
  meeting.wrapper.releaseFrame(remote(0));
  assert.ok(before.equals(frame.yPlaneBuffer));
  await meeting.nextFrame(remote(0), frame.frameId);
});

// ---- Configuration, statistics, layout, attributes

effect(
  ['updateConfigData', 'getConfigData'],
  'updateConfigData changes the configuration, and a changed index is notified',
  async (meeting) => {
    const usual = { isVesperCapable: false, maxVOQualityIndex: 4 };
    assert.deepEqual(meeting.wrapper.getConfigData(), usual);
    const update = (configData) => meeting.wrapper.updateConfigData({ configData });
    update('{"isVesperCapable": true}');
    assert.deepEqual(meeting.wrapper.getConfigData(), { ...usual, isVesperCapable: true });
    update('{"isVesperCapable": false, "maxVOQualityIndex": 1}');
    assert.deepEqual(meeting.wrapper.getConfigData(), { ...usual, maxVOQualityIndex: 1 });
    await meeting.seen('vspUpdateVOQI');
    assert.deepEqual(meeting.payloads('vspUpdateVOQI'), [{ VSPVOQI: 1 }]);
    await meeting.join('tessel:room?participants=1');
    const { width, height } = await meeting.nextFrame(remote(0));
    assert.deepEqual([width, height], [160, 90], 'the index is a ceiling');
  },
);

effect(
  ['updateConfigData', 'getConfigData'],
  'an invalid text changes nothing and is logged',
  async (meeting) => {
    const before = meeting.wrapper.getConfigData();
    const texts = [
      '',
      'no JSON',
      '[]',
      '{"isVesperCapable": 1}',
      '{"maxVOQualityIndex": 5}',
      '{"isVesperCapable": true, "maxVOQualityIndex": "3"}',
    ];
    for (const configData of texts) {
      meeting.wrapper.updateConfigData({ configData });
      assert.deepEqual(meeting.wrapper.getConfigData(), before, configData);
    }
    assert.equal(meeting.log().match(/ configuration not understood$/gm).length, texts.length);
  },
);

effect(
  ['configureMeetingStats', 'getMeetingStats'],
  'received media are measured while statistics are switched on',
  async (meeting) => {
    await meeting.join(SMALL);
    const { csrc } = await meeting.seen('streamAdded');
    const streams = () => meeting.wrapper.getMeetingStats().video_recv_stats;
    assert.deepEqual(streams(), []);
    meeting.wrapper.configureMeetingStats({ enable: true, timerDuration: 200 });
    const { ssrc, width, height } = await meeting.until(() => streams().find(({ fps }) => fps > 0));
    assert.deepEqual([ssrc, width, height], [csrc, 64, 36]);
    meeting.wrapper.configureMeetingStats({ enable: false, timerDuration: 200 });
    await meeting.until(() => streams().length === 0);
  },
);

effect(
  ['updateVideoStreamsState'],
  'only requested streams arrive, in the requested quality',
  async (meeting) => {
    await meeting.join('tessel:room?participants=2');
    const { csrc } = await meeting.seen('streamAdded', ({ streamIndex }) => streamIndex === 1);
    await meeting.nextFrame(remote(0));
    meeting.wrapper.updateVideoStreamsState({
      VideoStreamState: {
        VideoStreamInfos: [{ ssrc: csrc, participantSsrc: 0, speakerGroup: 0, priority: 1 }],
        VideoOccupancyConstraints: [[{ maxquality: 180 }]],
      },
    });
    for (const index of [0, 1]) {
      await meeting.seen('streamUpdated', ({ streamIndex }) => streamIndex === index);
    }
    assert.ok(meeting.showsNothing(remote(0)));
    const { width } = await meeting.frameWhere(remote(1), ({ height }) => height === 180);
    assert.equal(width, 320);
  },
);

effect(['getMediaMeetingAttributes'], 'the call says what it requires', async (meeting) => {
  assert.deepEqual(meeting.wrapper.getMediaMeetingAttributes(), []);
  await meeting.join('tessel:room?participants=0&attributes=recorded', {
    meetingAttributes: 'beta,alpha',
    meetingFeatures: ['feature'],
  });
  assert.deepEqual(
    meeting.wrapper.getMediaMeetingAttributes(),
    ['alpha', 'beta', 'feature', 'recorded'].map((value) => ({ value })),
  );
  await meeting.leave();
  assert.deepEqual(meeting.wrapper.getMediaMeetingAttributes(), []);
});

test('every method of the wrapper is tested here', () => {
  assert.deepEqual([...shown].sort(), [FACTORY_SETTER, ...METHODS.map(({ name }) => name)].sort());
});
