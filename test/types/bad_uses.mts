// Uses that the declarations must refuse: every line below an expectation has exactly one error.

import {
  EVENT_NAMES,
  CallError,
  Meeting,
  TesselWrapper,
  Widget,
  copyI420,
  copyRgba,
} from 'tessel-wrapper';
import type {
  ConnectParams,
  JoinParams,
  MeetingEvents,
  StreamKey,
  VideoStreamConstraints,
} from 'tessel-wrapper';

declare const meeting: Meeting;
declare const widget: Widget;
declare const wrapper: TesselWrapper;
declare const connection: ConnectParams;
const remote: StreamKey = { type: 'remote', streamIndex: 0 };

// ---- Making

// @ts-expect-error: the log's directory has no default
Meeting.open({});
// @ts-expect-error: opened, not constructed
new Meeting();
// @ts-expect-error: made by the package alone
new CallError();
// @ts-expect-error: all five are required
new TesselWrapper({ appVersion: '', configPath: '', logPath: '', logPrefix: '' });
// @ts-expect-error: the factory has to make an emitter
TesselWrapper._internal_setEmitterFactory(() => ({}));
// @ts-expect-error: both names are needed
new Widget({ shm_name: '' });

// ---- Events

// @ts-expect-error: no such event
meeting.on('streamMoved', () => {});
// @ts-expect-error: no such event
wrapper.on('error', () => {});
// @ts-expect-error: no such property in this payload
meeting.on('micLevel', ({ muted }) => muted);
// @ts-expect-error: the property is a number
meeting.once('micLevel', ({ level }: { level: string }) => level);
// @ts-expect-error: no such event
meeting.off('none', () => {});
// @ts-expect-error: no such event
meeting.waitFor('joined');
// @ts-expect-error: a payload is judged, not a name
meeting.waitFor('micLevel', { where: (payload: string) => payload === '' });
// @ts-expect-error: milliseconds are a number
meeting.waitFor('micLevel', { timeout: '1s' });
// @ts-expect-error: a controller is no signal
meeting.waitFor('micLevel', { signal: new AbortController() });
// @ts-expect-error: names come in an array
meeting.events('micLevel');
// @ts-expect-error: no such event
meeting.events(['micLevel', 'none']);
// @ts-expect-error: a status may be absent
export const status: string = ({} as MeetingEvents['screenShareStatus']).status;
// @ts-expect-error: content is never muted
export const muted: MeetingEvents['mediaMuteState'] = { mediaType: 'content', muted: true };

export async function eventsOfOther() {
  for await (const [name, payload] of meeting.events(['micLevel', 'streamAdded'])) {
    // @ts-expect-error: a stream has no level
    if (name === 'streamAdded') payload.level;
    // @ts-expect-error: this event was not asked for
    if (name === 'deviceChange') return;
  }
}

// ---- Calls

// @ts-expect-error: the meeting has to be named
meeting.join({});
// @ts-expect-error: no such property
meeting.join({ uri: '', url: '' });
// @ts-expect-error: part of the state, but of the right type
export const join: JoinParams = { uri: '', mediaStreamState: { outgoingAudioMuted: 1 } };
// @ts-expect-error: the engine needs the whole record
wrapper.connectCall({ uri: '' });
// @ts-expect-error: a list of texts
wrapper.connectCall({ ...connection, meetingFeatures: [1] });
// @ts-expect-error: the property is "enabled" here
wrapper.connectCall({ ...connection, gracefulEvents: [{ event: '', enable: true }] });
// @ts-expect-error: a flag
wrapper.muteLocalAudio(1);
// @ts-expect-error: all five are required
wrapper.updateMediaStreamState({ contentStreamEnabled: true });
// @ts-expect-error: pixels are a number
wrapper.setVideoDevice({ videoDeviceId: '', videoDeviceName: '', capability: { width: '640' } });
// @ts-expect-error: lower case
meeting.startPresentation({ type: 'Screen' });
// @ts-expect-error: not on the ladder
export const tile: VideoStreamConstraints = { maxquality: 700 };
// @ts-expect-error: both are required
wrapper.configureMeetingStats({ enable: true });
// @ts-expect-error: nothing is returned
wrapper.getMeetingStats().content_recv_stats.pacer_delay_ms;
// @ts-expect-error: milliseconds have a name
meeting.leave(500);
// @ts-expect-error: no such limit
meeting.leave({ timeOut: 5 });
// @ts-expect-error: a void method has no result
export const left: boolean = wrapper.disconnectCall();

// ---- Frames

// @ts-expect-error: its type may be unknown
for (const stream of meeting.streams) meeting.frames(stream);
// @ts-expect-error: no such type
meeting.frames({ type: 'screen', streamIndex: 0 });
// @ts-expect-error: frames per second are a number
meeting.frames(remote, { rate: '30' });
// @ts-expect-error: the rate is called that
meeting.frames(remote, { fps: 5 });
// @ts-expect-error: only what a loop gets has a time
wrapper.getFrame(remote, 0).receivedAt;
// @ts-expect-error: a frame identifier is needed
wrapper.getFrame(remote);
// @ts-expect-error: it may have no picture
wrapper.getFrame(remote, 0).yPlaneBuffer;
// @ts-expect-error: it may have no picture
copyI420(wrapper.getFrame(remote, 0));

export async function framesUnchecked() {
  for await (const frame of meeting.frames(remote)) {
    // @ts-expect-error: it may be told that there is nothing to show
    copyRgba(frame);
    // @ts-expect-error: bytes alone
    if (!frame.noUpdate) copyRgba(frame, new Uint16Array(1));
  }
}

// @ts-expect-error: the frame is gone when the callback returns
widget.read(remote, async (frame) => frame.width);
// @ts-expect-error: the frame is gone when the callback returns
widget.watch(remote, async () => {});
// @ts-expect-error: the streams are told, not set
meeting.streams = [];
// @ts-expect-error: the participants are told, not set
meeting.participants = [];
// @ts-expect-error: the participants are told, not changed
meeting.participants.push();
// @ts-expect-error: a meeting tells it, and no wrapper
meeting.wrapper.on('participants', () => {});
// @ts-expect-error: limits of other waits do not apply
meeting.enterWidgetMode(remote, { timeout: 1 });
// @ts-expect-error: the names are not to be changed
EVENT_NAMES.push('streamAdded');
