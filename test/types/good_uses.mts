// Correct uses of the package. They are compiled and never run.

import type { EventEmitter } from 'node:events';
import tessel, {
  CallError,
  ClosedError,
  Meeting,
  ShareError,
  TesselWrapper,
  TesselWrapperProxy,
  TimeoutError,
  Widget,
  copyI420,
  copyRgba,
  EVENT_NAMES,
  frameCounters,
} from 'tessel-wrapper';
import type {
  CallDisconnect,
  ClearFrame,
  ConnectParams,
  Frame,
  FrameCounters,
  JoinParams,
  MeetingEvent,
  MeetingEventName,
  MeetingEvents,
  MeetingStats,
  Participant,
  PictureFrame,
  ReceivedFrame,
  SharedDataInfo,
  StreamEvent,
  StreamKey,
} from 'tessel-wrapper';

type Equal<A, B> =
  (<T>() => T extends A ? 1 : 2) extends <T>() => T extends B ? 1 : 2 ? true : false;
function expectType<Expected>() {
  return <Actual,>(_value: Actual, _same: Equal<Actual, Expected>) => {};
}

// As the browser's own declarations have it.
declare class ImageData {
  constructor(data: Uint8ClampedArray<ArrayBuffer>, width: number);
}
const keyOf = (key: StreamKey) => key;

const wrapperClass: typeof TesselWrapper = tessel.TesselWrapper;
const remote: StreamKey = { type: 'remote', streamIndex: 0 };
const limits = { signal: new AbortController().signal, timeout: 1000 };

// ---- The addon's classes

const connection: ConnectParams = {
  uri: 'tessel:demo',
  endpointName: 'me',
  meetingGuid: '',
  maxBandwidth: 1,
  forceTurn: false,
  enableRdc: false,
  isVesperMeeting: false,
  enableClientDrivenLayouts: true,
  enableClientLayoutOrdering: false,
  meetingAttributes: '',
  meetingFeatures: ['feature'],
  gracefulEvents: [{ event: 'event', enabled: true }],
  mediaStreamState: {
    contentStreamEnabled: true,
    incomingAudioEnabled: true,
    incomingVideoEnabled: true,
    outgoingAudioMuted: false,
    outgoingVideoMuted: false,
  },
  turnServers: [
    {
      protocol: 'udp',
      fqdn: 'relay.example',
      address: '192.0.2.1',
      port: 3478,
      username: 'user',
      password: 'secret',
      priority: 1,
      bandwidth: 1,
    },
  ],
};

export function useWrapper(emitter: EventEmitter) {
  TesselWrapper._internal_setEmitterFactory(() => emitter);
  const wrapper = new wrapperClass({
    appVersion: '1',
    configPath: '',
    logPath: '',
    logPrefix: '',
    userAgent: '',
  });
  wrapper.on('streamAdded', (stream) => expectType<StreamEvent>()(stream, true));
  wrapper.on('micLevel', ({ level }) => expectType<number>()(level, true));
  wrapper.connectCall(connection);
  wrapper.disconnectCall();
  wrapper.updateMediaStreamState(connection.mediaStreamState);
  wrapper.muteLocalVideo(true);
  wrapper.muteLocalAudio(true);
  wrapper.setRemoteAudioMute(true);
  wrapper.enableCameraCapture(true);
  wrapper.setAudioDebug(true);
  const videoDevice = { videoDeviceId: 'a', videoDeviceName: 'b', capability: { height: 480 } };
  const audioInDevice = { audioInId: 'a', audioInName: 'b', audioInSourceName: 'c' };
  const audioOutDevice = { audioOutId: 'a', audioOutName: 'b', audioOutSourceName: 'c' };
  wrapper.selectDevices({ videoDevice, audioInDevice, audioOutDevice });
  wrapper.setVideoDevice({ videoDeviceId: 'a', videoDeviceName: 'b' });
  wrapper.setAudioInDevice(audioInDevice);
  wrapper.setAudioOutDevice(audioOutDevice);
  wrapper.sendAudioDeviceStats({
    isSpeakerMuted: false,
    speakerVolume: 1,
    isMicMuted: false,
    micVolume: 1,
  });
  wrapper.startPresentation({ type: 'window', windowId: 42 });
  wrapper.stopPresentation();
  wrapper.requestContentShareToken();
  wrapper.releaseContentShareToken();
  for (const { x, y, width, height } of wrapper.getScreenMonitorDetails()) {
    expectType<number>()(x + y + width + height, true);
  }
  wrapper.updateVideoStreamsState({
    VideoStreamState: {
      VideoStreamInfos: [{ ssrc: 1, participantSsrc: 1, speakerGroup: 0, priority: 1 }],
      VideoOccupancyConstraints: [[{ maxquality: 720, maxfps: 30 }], [{}, { minquality: 45 }]],
    },
  });
  wrapper.configureMeetingStats({ enable: true, timerDuration: 1000 });
  const stats = wrapper.getMeetingStats();
  expectType<MeetingStats>()(stats, true);
  expectType<number | undefined>()(stats.video_recv_stats[0]?.target_delay_ms, true);
  expectType<number>()(stats.audio_stats.snr + stats.meetingStats.system_cpu, true);
  expectType<number>()(stats.content_send_stats.pacer_delay_ms, true);
  expectType<string | undefined>()(wrapper.getMediaMeetingAttributes()[0]?.value, true);
  expectType<boolean>()(wrapper.getConfigData().isVesperCapable, true);
  expectType<number>()(wrapper.getConfigData().maxVOQualityIndex, true);
  wrapper.updateConfigData({ configData: '{}' });
  wrapper.registerEvent({ eventName: 'a', expires: 1, mimeType: 'b', mimeSubType: 'c' });
  wrapper.unregisterEvent({ eventName: 'a' });
  const frame: Frame = wrapper.getFrame(remote, 0);
  if (frame.noUpdate) expectType<boolean>()(frame.clearFrame, true);
  else expectType<number>()(frame.yPlaneBuffer.length + frame.vPlaneBufferStride, true);
  expectType<Frame>()(wrapper.getLastFrame(remote), true);
  wrapper.releaseFrame();
  wrapper.releaseFrame(remote);
  wrapper.enterWidgetMode(remote);
  wrapper.exitWidgetMode(remote);
  const proxy = new TesselWrapperProxy(wrapper.getSharedDataInfo());
  expectType<Frame>()(proxy.getFrame(remote, 0), true);
  expectType<Frame>()(proxy.getLastFrame(remote), true);
  proxy.releaseFrame(remote);
  proxy.removeVideo(remote);
  wrapper.destroy();
}

// ---- Meetings

export async function useMeeting() {
  using meeting = await Meeting.open({ logPath: '/tmp' });
  await Meeting.open(
    { logPath: '', appVersion: '', configPath: '', logPrefix: '', userAgent: '' },
    { signal: limits.signal },
  );
  const join: JoinParams = { uri: 'tessel:demo', mediaStreamState: { outgoingVideoMuted: true } };
  await meeting.join(join);
  await meeting.join(connection, limits);
  expectType<CallDisconnect | undefined>()(await meeting.leave(limits), true);
  await meeting.requestContentShareToken(limits);
  await meeting.startPresentation({ type: 'screen' }, limits);
  await meeting.stopPresentation(limits);
  await meeting.releaseContentShareToken(limits);

  const listener = ({ mediaType, muted }: MeetingEvents['mediaMuteState']) => {
    expectType<'video' | 'audio' | undefined>()(mediaType, true);
    expectType<boolean>()(muted, true);
  };
  meeting.on('mediaMuteState', listener).once('mediaMuteState', listener);
  meeting.off('mediaMuteState', listener);
  const status = await meeting.waitFor('screenShareStatus', {
    where: (payload) => payload.status === 'started',
    ...limits,
  });
  expectType<MeetingEvents['screenShareStatus']>()(status, true);

  expectType<readonly Participant[]>()(meeting.participants, true);
  meeting.on('participants', ([me]) => expectType<Participant | undefined>()(me, true));
  for (const { stream } of await meeting.waitFor('participants')) meeting.frames(stream);

  for await (const [name, payload] of meeting.events(['micLevel', 'deviceChange'])) {
    if (name === 'micLevel') expectType<number>()(payload.level, true);
    else expectType<string>()(payload.id, true);
  }
  for await (const [name, payload] of meeting.events<MeetingEventName>(['eventNotify'])) {
    if (name === 'callDisconnect') expectType<CallDisconnect>()(payload, true);
  }
  const event: MeetingEvent<'micLevel'> = ['micLevel', { level: 1 }];
  expectType<[name: 'micLevel', payload: { level: number }]>()(event, true);

  for await (const frame of meeting.frames(remote, { rate: 15, signal: limits.signal })) {
    expectType<ReceivedFrame>()(frame, true);
    expectType<number>()(frame.receivedAt, true);
    const untimed: PictureFrame | ClearFrame = frame;
    expectType<boolean>()(untimed.clearFrame, true);
    if (frame.noUpdate) {
      expectType<true>()(frame.clearFrame, true);
      continue;
    }
    copyI420(frame, undefined);
    const packed: Uint8Array = copyI420(frame);
    expectType<ArrayBuffer>()(copyI420(frame).buffer, true);
    new ImageData(copyRgba(frame), frame.width);
    const clamped: Uint8ClampedArray = copyRgba(frame);
    copyI420(frame, packed);
    copyRgba(frame, clamped);
    for (const copy of [copyI420, copyRgba]) {
      expectType<Uint8Array>()(copy(frame, packed), true);
      expectType<Uint8ClampedArray>()(copy(frame, clamped), true);
      copy(frame, Buffer.alloc(1)).toString('base64');
    }
  }
  for (const stream of meeting.streams) {
    if (stream.type === 'unknown') continue;
    expectType<SharedDataInfo>()(await meeting.enterWidgetMode(stream), true);
    meeting.frames(stream);
  }
  const stream = await meeting.waitFor('streamAdded');
  if (stream.type !== 'unknown') expectType<StreamKey>()(keyOf(stream), true);
  meeting.exitWidgetMode(remote);
  expectType<FrameCounters[]>()([...meeting.counters(), ...frameCounters()], true);
  expectType<TesselWrapper>()(meeting.wrapper, true);
  expectType<readonly MeetingEventName[]>()(EVENT_NAMES, true);
  for (const name of EVENT_NAMES) meeting.on(name, (payload) => console.log(name, payload));
  expectType<boolean>()(meeting.isClosed, true);
  meeting.close();
}

// ---- Widgets

export async function useWidget(names: SharedDataInfo) {
  using widget = new Widget(names);
  const size = widget.read(remote, ({ width, height }) => width * height);
  expectType<number | undefined>()(size, true);
  widget.read(remote, () => {});
  await widget.watch(remote, (frame) => void copyRgba(frame), { rate: 1, signal: limits.signal });
  widget.remove(remote);
  expectType<TesselWrapperProxy>()(widget.proxy, true);
  expectType<FrameCounters[]>()(widget.counters(), true);
  expectType<boolean>()(widget.isClosed, true);
  widget.close();
}

// ---- Errors

export function explain(error: unknown): string {
  if (error instanceof CallError) return `${error.callId} ${error.reason} ${error.code}`;
  if (error instanceof ShareError) return error.status;
  if (error instanceof TimeoutError) return error.message;
  return error instanceof ClosedError ? error.message : '';
}
