// Tests of what is the same with every engine. The engine is the one of TESSEL_TEST_ENGINE, which is
// set before this is imported.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { readCard } from './card_code.mjs';
import { Meeting, TesselWrapperProxy } from './embedded_meeting.mjs';
import { METHODS } from './scripted/method_table.mjs';
import { LOCAL, remote } from './streams.mjs';

const CAPTURE = { width: 320, height: 180, maxFPS: 30 };
const PARTICIPANTS = {
  ...{ eventName: 'participants', expires: 60 },
  ...{ mimeType: 'application', mimeSubType: 'json' },
};
const isVideo = ({ mediaType }) => mediaType === 'video';

function openMeeting(t) {
  const meeting = new Meeting(t);
  meeting.wrapper.setVideoDevice({ videoDeviceId: '', videoDeviceName: '', capability: CAPTURE });
  return meeting;
}

// `uriOf` answers with the uri of a call, in a room of its own, that has the local video and that of
// `others` participants.
export function testAnyEngine(uriOf) {
  test('no method but those of frames and devices has an effect outside a call', async (t) => {
    const { wrapper, ...meeting } = openMeeting(t);
    for (const { name, returnsValue, args } of METHODS) {
      if (['connectCall', 'destroy', 'on'].includes(name)) continue;
      const answer = wrapper[name](...args);
      assert.equal(answer !== undefined, returnsValue, name);
    }
    assert.deepEqual(
      meeting.events.filter(([name]) => name.startsWith('call') || name.startsWith('stream')),
      [],
    );
  });

  test('arguments that are missing are refused, and reach nothing', (t) => {
    const { wrapper } = openMeeting(t);
    for (const { name, args } of METHODS) {
      if (args.length === 0) continue;
      assert.throws(() => wrapper[name](), /^(TypeError|Error): /, name);
    }
  });

  test('a call is told from its beginning to its end, in order', async (t) => {
    const meeting = openMeeting(t);
    assert.equal(await meeting.join(await uriOf(t, 0)), true);
    assert.deepEqual(await meeting.leave(), { callId: 1, reason: 'the call was left', code: 0 });
    assert.deepEqual(
      meeting.events.filter(([name]) => name.startsWith('call')),
      [
        ['callConnectionStatus', { connected: true }],
        ['callConnectionStatus', { connected: false }],
        ['callDisconnect', { callId: 1, reason: 'the call was left', code: 0 }],
      ],
    );
  });

  test('a uri that no engine knows ends the call before it began', async (t) => {
    const meeting = openMeeting(t);
    assert.equal(await meeting.join('nothing:at/all'), false);
    assert.equal((await meeting.seen('callDisconnect')).code, 400);
  });

  test('mutes are told, also outside a call', async (t) => {
    const meeting = openMeeting(t);
    meeting.wrapper.muteLocalVideo(true);
    assert.equal((await meeting.seen('mediaMuteState', isVideo)).muted, true);
  });

  test('participants are told to whoever asks for them, at once and at each change', async (t) => {
    const meeting = openMeeting(t);
    // The names, without those events that tell something else of the same participants.
    const told = () =>
      meeting
        .payloads('eventNotify')
        .map(({ eventBody }) =>
          JSON.parse(eventBody)
            .participants.map(({ name }) => name)
            .join(),
        )
        .filter((names, index, all) => names !== all[index - 1]);
    meeting.wrapper.registerEvent(PARTICIPANTS);
    await meeting.until(() => told().length > 0);
    await meeting.join(await uriOf(t, 0), { endpointName: 'Ada' });
    await meeting.until(() => told().length > 1);
    await meeting.leave();
    await meeting.until(() => told().length > 2);
    assert.deepEqual(told(), ['', 'Ada', '']);
  });

  test('the local video is captured in a call, numbered and timed', async (t) => {
    const meeting = openMeeting(t);
    await meeting.join(await uriOf(t, 0));
    assert.ok(meeting.wrapper.getFrame(LOCAL, 0).noUpdate);
    meeting.wrapper.enableCameraCapture(true);
    const first = await meeting.nextFrame(LOCAL);
    const { frameId, csrc, width, height } = first;
    assert.deepEqual([width, height], [CAPTURE.width, CAPTURE.height]);
    assert.equal(readCard(first).type, 'local');
    const second = await meeting.nextFrame(LOCAL, frameId);
    assert.ok(second.frameId > frameId);
    assert.equal(second.csrc, csrc);
    meeting.wrapper.enableCameraCapture(false);
    await meeting.until(() => meeting.showsNothing(LOCAL));
  });

  test('a proxy reads the frames of a stream for as long as it is in widget mode', async (t) => {
    const meeting = openMeeting(t);
    await meeting.join(await uriOf(t, 1));
    await meeting.seen('streamAdded');
    const { wrapper } = meeting;
    const proxy = new TesselWrapperProxy(wrapper.getSharedDataInfo());
    assert.ok(proxy.getFrame(remote(0), 0).noUpdate, 'it is not yet shared');
    wrapper.enterWidgetMode(remote(0));
    const card = await meeting.until(() => {
      const frame = proxy.getFrame(remote(0), 0);
      // Before the first picture has been copied its size is 0.
      const seen = frame.width > 0 && readCard(frame);
      proxy.releaseFrame(remote(0));
      return seen;
    });
    assert.ok(card);
    wrapper.exitWidgetMode(remote(0));
    assert.ok(proxy.getFrame(remote(0), 0).noUpdate, 'it is not shared any more');
  });
}
