/// <reference lib="esnext.disposable" />

// The declarations of the package's face. Integers are read as signed 32-bit ones, fractions cut
// off, unless something else is said.

// ---- Streams and frames

export type StreamType = 'local' | 'remote' | 'content';

/** Names one media stream. */
export interface StreamKey {
  type: StreamType;
  /**
   * The number of the stream among those of its type; in widget mode from 0 to 49 for remote ones.
   */
  streamIndex: number;
}

/** An answer without a picture. */
export interface FrameWithoutPicture {
  noUpdate: true;
  /** The stream has no picture: clear the one that you show for it. */
  clearFrame: boolean;
  frameId: number;
  /** The contributing source that the frame came from: unsigned 32-bit. */
  csrc: number;
}

/** The stream no longer has a picture: clear the one that you show for it. */
export interface ClearFrame extends FrameWithoutPicture {
  clearFrame: true;
}

/**
 * A picture: planar YUV 4:2:0, 8 bits, BT.601 limited range.
 *
 * The three arrays are views of the engine's own memory, or of shared memory in a widget, without a
 * copy. When that memory is no longer valid they are detached: their length becomes 0. A frame of a
 * `TesselWrapper` is valid until the next fresh frame of its stream is read, one of a
 * `TesselWrapperProxy` until it is released. Never write into them, and never pass them to anything
 * that works on another thread: copy them first.
 */
export interface PictureFrame {
  noUpdate: false;
  /** Clear the picture that you show before this one is drawn. */
  clearFrame: boolean;
  /**
   * The number of the frame in its stream; the numbers of lost frames are left out. In a widget it
   * is the address of the picture in its process, the same for every frame.
   */
  frameId: number;
  /** The contributing source that the frame came from: unsigned 32-bit. */
  csrc: number;
  /** Pixels. */
  width: number;
  /** Pixels. */
  height: number;
  /** Luma, `yPlaneBufferSize` bytes. */
  yPlaneBuffer: Uint8Array;
  /** Samples in a row: `width`. */
  yPlaneBufferWidth: number;
  /** Rows: `height`. */
  yPlaneBufferHeight: number;
  /** Bytes. */
  yPlaneBufferSize: number;
  /** Bytes from the start of one row to the start of the next. */
  yPlaneBufferStride: number;
  /** Blue-difference chroma, `uPlaneBufferSize` bytes. */
  uPlaneBuffer: Uint8Array;
  /** Samples in a row: half of `width`, rounded up. */
  uPlaneBufferWidth: number;
  /** Rows: half of `height`, rounded up. */
  uPlaneBufferHeight: number;
  /** Bytes. */
  uPlaneBufferSize: number;
  /** Bytes from the start of one row to the start of the next. */
  uPlaneBufferStride: number;
  /** Red-difference chroma, `vPlaneBufferSize` bytes. */
  vPlaneBuffer: Uint8Array;
  /** Samples in a row: half of `width`, rounded up. */
  vPlaneBufferWidth: number;
  /** Rows: half of `height`, rounded up. */
  vPlaneBufferHeight: number;
  /** Bytes. */
  vPlaneBufferSize: number;
  /** Bytes from the start of one row to the start of the next. */
  vPlaneBufferStride: number;
}

export type Frame = PictureFrame | FrameWithoutPicture;

/** What `Meeting.frames` adds to a frame. */
export interface Received {
  /**
   * When the loop got the frame from the engine: milliseconds on the clock of `performance.now()`,
   * which never goes back. A loop that is fast enough gets it within one period of its rate. It is
   * not the time of capture.
   */
  readonly receivedAt: number;
}

/** A frame of `Meeting.frames`. */
export type ReceivedFrame = (PictureFrame | ClearFrame) & Received;

// ---- Records that methods take

/** Describes the application to its engine. */
export interface CreateParams {
  /** Version of the application. */
  appVersion: string;
  /** File, or directory, of the engine's configuration; '' for none. */
  configPath: string;
  /** Directory of the engine's log. */
  logPath: string;
  /** The prefix of the names of the log's files. */
  logPrefix: string;
  /** The name under which the engine announces itself. */
  userAgent: string;
}

export interface MediaStreamState {
  /** Shared content is received. */
  contentStreamEnabled: boolean;
  /** Remote audio is received. */
  incomingAudioEnabled: boolean;
  /** Remote video is received. */
  incomingVideoEnabled: boolean;
  /** Local audio is muted towards the meeting. */
  outgoingAudioMuted: boolean;
  /** Local video is muted towards the meeting. */
  outgoingVideoMuted: boolean;
}

/** Whether an event of the meeting's orderly changes is requested; see "gracefulEvent". */
export interface GracefulEventState {
  event: string;
  enabled: boolean;
}

/** One TURN relay server. */
export interface TurnServerInfo {
  protocol: string;
  fqdn: string;
  address: string;
  port: number;
  username: string;
  password: string;
  priority: number;
  bandwidth: number;
}

/** All parameters of joining a meeting. */
export interface ConnectParams {
  /**
   * The meeting, in the engine's own scheme: `tessel:...` for the embedded engine, `janus+ws:...` and
   * `janus+wss:...` for the WebRTC engine.
   */
  uri: string;
  /** The local participant's name. */
  endpointName: string;
  meetingGuid: string;
  /** Bits per second. */
  maxBandwidth: number;
  /** Media goes through the TURN servers alone. */
  forceTurn: boolean;
  enableRdc: boolean;
  isVesperMeeting: boolean;
  /** Layouts are requested with `updateVideoStreamsState`. */
  enableClientDrivenLayouts: boolean;
  enableClientLayoutOrdering: boolean;
  /** Attributes of the meeting, separated by commas. */
  meetingAttributes: string;
  /** A duplicate counts once. */
  meetingFeatures: readonly string[];
  gracefulEvents: readonly GracefulEventState[];
  mediaStreamState: MediaStreamState;
  turnServers: readonly TurnServerInfo[];
}

export interface CaptureCapability {
  /** Pixels; 1280 when left out. */
  width?: number;
  /** Pixels; 720 when left out. */
  height?: number;
  /** The most frames per second; 30 when left out. */
  maxFPS?: number;
}

/** A camera, and how it captures. */
export interface VideoDevice {
  videoDeviceId: string;
  videoDeviceName: string;
  capability?: CaptureCapability;
}

/** A microphone. */
export interface AudioInDevice {
  audioInId: string;
  audioInName: string;
  audioInSourceName: string;
}

/** A speaker. */
export interface AudioOutDevice {
  audioOutId: string;
  audioOutName: string;
  audioOutSourceName: string;
}

export interface DeviceSelectionParams {
  videoDevice: VideoDevice;
  audioInDevice: AudioInDevice;
  audioOutDevice: AudioOutDevice;
}

/** The state of the application's own mixer, for the engine's report. */
export interface AudioDeviceStats {
  isSpeakerMuted: boolean;
  /** A whole number; a negative one arrives as a very large one. */
  speakerVolume: number;
  isMicMuted: boolean;
  /** A whole number; a negative one arrives as a very large one. */
  micVolume: number;
}

/** The source to share. The identifier that belongs to `type` counts; -1 when omitted. */
export interface ContentShareParams {
  type: 'screen' | 'application' | 'window';
  /** The index of a monitor of `getScreenMonitorDetails`; -1 is the first. */
  screenId?: number;
  applicationId?: number;
  windowId?: number;
}

/** One requested remote video. */
export interface VideoStreamInfo {
  /** The `csrc` of the stream: unsigned 32-bit. */
  ssrc: number;
  /** The `csrc` of the participant's stream: unsigned 32-bit. */
  participantSsrc: number;
  /** The low 16 bits count. */
  speakerGroup: number;
  /** Larger comes first. The low 16 bits count. */
  priority: number;
}

/**
 * Limits of one tile. A quality is a height in pixels, a rate is in frames per second; one that is
 * omitted limits nothing.
 */
export interface VideoStreamConstraints {
  maxquality?: 45 | 90 | 180 | 360 | 720;
  maxfps?: 3 | 7 | 15 | 30;
  minquality?: 45 | 90 | 180 | 360 | 720;
  minfps?: 3 | 7 | 15 | 30;
}

/** Which remote videos to receive, and how well. */
export interface VideoStreamsState {
  VideoStreamState: {
    VideoStreamInfos: readonly VideoStreamInfo[];
    /** Row n - 1 holds when n tiles are shown, with one entry for each tile. */
    VideoOccupancyConstraints: readonly (readonly VideoStreamConstraints[])[];
  };
}

export interface MeetingStatsParams {
  enable: boolean;
  /** How often, in milliseconds for both engines of the package. The low 16 bits count. */
  timerDuration: number;
}

export interface ConfigDataParams {
  /** A text in the engine's own format. */
  configData: string;
}

/** A subscription to a named event of the meeting's server; see "eventNotify". */
export interface RegisterEventParams {
  eventName: string;
  /** In seconds for both engines of the package: unsigned 32-bit. */
  expires: number;
  mimeType: string;
  mimeSubType: string;
}

export interface UnregisterEventParams {
  eventName: string;
}

// ---- What methods return

export interface ConfigData {
  isVesperCapable: boolean;
  /** The highest video-quality index that is allowed. */
  maxVOQualityIndex: number;
}

/** A monitor's place on the desktop, in pixels. */
export interface ScreenMonitor {
  x: number;
  y: number;
  width: number;
  height: number;
}

export interface MeetingAttribute {
  value: string;
}

/** The names of the main segment, which the widget process needs. */
export interface SharedDataInfo {
  shm_name: string;
  sem_name: string;
}

/** Units that are not in a name are the engine's. */
export interface MeetingTotals {
  system_cpu: number;
  process_cpu: number;
  inbound_bwe_bps: number;
  outbound_bwe_bps: number;
  total_inbound_bps: number;
  total_outbound_bps: number;
  send_tmmbr_bitrate: number;
  instant_inbound_loss: number;
  instant_outbound_loss: number;
}

export interface ContentSendStats {
  width: number;
  height: number;
  total_bitrate_bps: number;
  pacer_delay_ms: number;
  fps: number;
  retransmit_bitrate_bps: number;
}

export interface VideoSendStats extends ContentSendStats {
  /** Unsigned 32-bit. */
  ssrc: number;
  /** From 0 to 1. */
  fraction_loss: number;
  /** Packets. */
  cumulative_loss: number;
}

export interface ContentReceiveStats {
  width: number;
  height: number;
  total_bitrate_bps: number;
  target_delay_ms: number;
  rtx_recovered_packets: number;
  fec_recovered_packets: number;
  fps: number;
}

export interface VideoReceiveStats extends ContentReceiveStats {
  /** Unsigned 32-bit. */
  ssrc: number;
  /** From 0 to 1. */
  fraction_loss: number;
  /** Packets. */
  cumulative_loss: number;
}

export interface AudioStats {
  transmit_level: number;
  output_level: number;
  snr: number;
  downlink_jitter: number;
  uplink_jitter: number;
  downlink_packet_loss_count: number;
  uplink_packet_loss_count: number;
  downlink_packet_corrected_count: number;
  uplink_packet_corrected_count: number;
  /** Exact up to 2 to the power of 53. */
  downlink_payload_bytes: number;
  /** Exact up to 2 to the power of 53. */
  uplink_payload_bytes: number;
}

/** One snapshot of the engine's statistics. */
export interface MeetingStats {
  meetingStats: MeetingTotals;
  /** Ascending by `ssrc`. */
  video_send_stats: VideoSendStats[];
  content_send_stats: ContentSendStats;
  /** Ascending by `ssrc`. */
  video_recv_stats: VideoReceiveStats[];
  content_recv_stats: ContentReceiveStats;
  audio_stats: AudioStats;
}

// ---- Events

export type ShareStatus =
  | 'started'
  | 'failed'
  | 'denied'
  | 'token_granted'
  | 'token_denied'
  | 'stopped'
  | 'token_relinquished';

/**
 * A stream and its contributing source: unsigned 32-bit. The type is 'unknown' when the engine names
 * one that the addon does not know; every other is a `StreamKey`.
 */
export type StreamEvent =
  (StreamKey & { csrc: number }) | { type: 'unknown'; streamIndex: number; csrc: number };

export interface CallDisconnect {
  /** The number of the call in its engine. */
  callId: number;
  reason: string;
  /** 0 when the call was left; the engine's documentation lists the others. */
  code: number;
}

/** A participant of the meeting, the local one included. */
export interface Participant {
  /** Of the participant's camera. */
  stream: StreamKey;
  /** Of that stream: unsigned 32-bit. */
  csrc: number;
  /** Identifies the participant; empty when it is unknown. */
  guid: string;
  name: string;
  /** The participant's own microphone is muted. */
  audioMuted: boolean;
  /** The participant's own camera is muted. */
  videoMuted: boolean;
  /** The participant's voice is heard. */
  speaking: boolean;
  /** The participant shares content. */
  presenting: boolean;
}

/** The events that the addon emits, by name, with their payloads. */
export interface WrapperEvents {
  /** A stream was added. */
  streamAdded: StreamEvent;
  /** A stream was removed. */
  streamRemoved: StreamEvent;
  /** A stream has changed: its source, its size or whether it has a picture. */
  streamUpdated: StreamEvent;
  gracefulEvent: { event: string; enable: boolean };
  /** The call was joined, or the join failed, or the call ended. */
  callConnectionStatus: { connected: boolean };
  /** Without `status` when the engine reports one that has no name. */
  screenShareStatus: { status?: ShareStatus };
  /** Another participant presents content, or no longer does. */
  contentReceive: { isReceiving: boolean; presenterGuid: string };
  callDisconnect: CallDisconnect;
  /** Without `mediaType` when it is neither. */
  mediaMuteState: { mediaType?: 'video' | 'audio'; muted: boolean };
  /** The microphone's level; from 0 to 100 on both engines of the package. */
  micLevel: { level: number };
  /** Media stopped arriving (`up` is false) or arrives again. Without `mediaType` when it has no name. */
  noRtpMedia: { mediaType?: 'video' | 'audio' | 'content'; up: boolean };
  /** A device was plugged in or unplugged. Without `type` when it has no name. */
  deviceChange: { id: string; type?: 'video' | 'audioIn' | 'audioOut' };
  /** An event that was registered; its body is the engine's text, unparsed. */
  eventNotify: { eventName: string; eventBody: string };
  /** The video-quality index changed. */
  vspUpdateVOQI: { VSPVOQI: number };
}

export type WrapperEventName = keyof WrapperEvents;

/** The events of a meeting: those of its wrapper, and its own. */
export interface MeetingEvents extends WrapperEvents {
  /**
   * All participants, the local one first; empty outside a call. Emitted when the meeting is opened and
   * after each change; simultaneous changes are one event. The meeting registers the engine's event of
   * this name for it, which `eventNotify` reports as well.
   */
  participants: readonly Participant[];
}

export type MeetingEventName = keyof MeetingEvents;

/** The names of all events. */
export const EVENT_NAMES: readonly MeetingEventName[];

/**
 * One event as the pair of its name and its payload; the name determines the type of the payload.
 */
export type MeetingEvent<Name extends MeetingEventName = MeetingEventName> = {
  [Each in Name]: [name: Each, payload: MeetingEvents[Each]];
}[Name];

// ---- The addon's classes

/** What an emitter factory makes: for example an `EventEmitter` of `node:events`. */
export interface Emitter {
  on(eventName: string, listener: (...args: any[]) => void): unknown;
  emit(eventName: string, payload: any): unknown;
}

/**
 * One media engine. Can be constructed on the main thread only. Its methods check their arguments
 * (a `TypeError` says what is invalid), call the engine and return; the results arrive as events.
 */
export class TesselWrapper {
  /** Sets the factory of the emitters of all wrappers that are constructed later. */
  static _internal_setEmitterFactory(factory: () => Emitter): void;

  /** Blocks until the engine is initialised. The emitter is held weakly: keep a reference to it. */
  constructor(params: CreateParams);

  /** Shuts the engine down. From then on the process can end by itself. */
  destroy(): void;
  /** Passes the listener to the emitter's own `on`. */
  on<Name extends WrapperEventName>(
    eventName: Name,
    listener: (payload: WrapperEvents[Name]) => void,
  ): void;

  /** Answered with "callConnectionStatus", and with "callDisconnect" when it is not joined. */
  connectCall(params: ConnectParams): void;
  /** Answered with "callDisconnect". */
  disconnectCall(): void;

  /** Answered with "mediaMuteState" when it changes the sent media. */
  updateMediaStreamState(state: MediaStreamState): void;
  /** Answered with "mediaMuteState". */
  muteLocalVideo(mute: boolean): void;
  /** Answered with "mediaMuteState". */
  muteLocalAudio(mute: boolean): void;
  setRemoteAudioMute(mute: boolean): void;
  /** Switches the local stream with index 0. */
  enableCameraCapture(enable: boolean): void;
  selectDevices(params: DeviceSelectionParams): void;
  setVideoDevice(device: VideoDevice): void;
  setAudioInDevice(device: AudioInDevice): void;
  setAudioOutDevice(device: AudioOutDevice): void;
  setAudioDebug(enable: boolean): void;
  sendAudioDeviceStats(stats: AudioDeviceStats): void;

  /** Answered with "screenShareStatus": 'started', 'failed' or 'denied'. */
  startPresentation(params: ContentShareParams): void;
  /** Answered with "screenShareStatus": 'stopped'. */
  stopPresentation(): void;
  /** Answered with "screenShareStatus": 'token_granted' or 'token_denied'. */
  requestContentShareToken(): void;
  /** Answered with "screenShareStatus": 'token_relinquished'. */
  releaseContentShareToken(): void;
  /** The local monitors, in the engine's order. */
  getScreenMonitorDetails(): ScreenMonitor[];

  updateVideoStreamsState(state: VideoStreamsState): void;

  configureMeetingStats(params: MeetingStatsParams): void;
  getMeetingStats(): MeetingStats;
  /** The attributes that the meeting requires, ascending. */
  getMediaMeetingAttributes(): MeetingAttribute[];

  getConfigData(): ConfigData;
  updateConfigData(params: ConfigDataParams): void;
  /** Answered with "eventNotify" each time the event arrives. */
  registerEvent(params: RegisterEventParams): void;
  unregisterEvent(params: UnregisterEventParams): void;

  /**
   * The stream's newest frame. Without a picture when `frameId` is its identifier; 0 stands for no
   * frame. Its planes must not be passed to anything that reads or writes them on another thread,
   * such as zlib, crypto, files and sockets: copy them first.
   */
  getFrame(stream: StreamKey, frameId: number): Frame;
  /** The last frame that `getFrame` returned, again. */
  getLastFrame(stream: StreamKey): Frame;
  /** Does nothing: frames are released automatically. */
  releaseFrame(...ignored: unknown[]): void;

  /**
   * Copies the stream's frames into shared memory from now on. The segment is made with the
   * permissions that the umask leaves, and under a name that repeats within one second:
   * `Meeting.enterWidgetMode` takes care of both.
   */
  enterWidgetMode(stream: StreamKey): void;
  exitWidgetMode(stream: StreamKey): void;
  /** The argument of the constructor of `TesselWrapperProxy`. */
  getSharedDataInfo(): SharedDataInfo;
}

/**
 * Reads the frames of streams in widget mode, in a second process. Can be constructed on the main
 * thread only.
 */
export class TesselWrapperProxy {
  constructor(names: SharedDataInfo);

  /**
   * The stream's picture in shared memory, which stays locked until `releaseFrame`, even when the
   * answer has no picture. It has none when `frameId` is the number of stored frames less one. Its
   * planes must not be passed to anything that reads or writes them on another thread, such as
   * zlib, crypto, files and sockets: copy them first.
   */
  getFrame(stream: StreamKey, frameId: number): Frame;
  /** `getFrame` with 0. */
  getLastFrame(stream: StreamKey): Frame;
  releaseFrame(stream: StreamKey): void;
  /**
   * Closes the stream's segment and removes its names. Call `releaseFrame` before: otherwise the
   * segment stays locked.
   */
  removeVideo(stream: StreamKey): void;
}

// ---- The meeting

/**
 * The longest that a promise waits, from the call to the end. Ends the waiting, not what the engine
 * was asked for. Here as in all options, one that is not listed or of another kind is refused with a
 * `TypeError`, when the operation is called.
 */
export interface Limits {
  /**
   * The promise rejects with its reason when it is aborted. When it was aborted before, the engine is
   * not asked.
   */
  signal?: AbortSignal;
  /**
   * Milliseconds, up to 2147483647; then the promise rejects with a `TimeoutError`. No limit when
   * left out.
   */
  timeout?: number;
}

export interface WaitOptions<Payload> extends Limits {
  /** The payloads that are accepted; all when omitted. */
  where?: (payload: Payload) => boolean;
}

export interface FrameOptions {
  /** The most frames per second, more than 0; 30 when left out. */
  rate?: number;
  /** When it is aborted, the iteration throws its reason, and `watch` rejects with it. */
  signal?: AbortSignal;
}

/**
 * `logPath` is required; the others are '' when left out or undefined, `userAgent` "tessel-wrapper".
 */
export type MeetingParams = Partial<CreateParams> & Pick<CreateParams, 'logPath'>;

/**
 * `uri` is required. What is left out, or undefined, means: everything is sent and received, at most
 * 4,000,000 bits per second, layouts driven by the application, no relay servers, nothing else
 * special.
 */
export type JoinParams = Partial<Omit<ConnectParams, 'mediaStreamState'>> &
  Pick<ConnectParams, 'uri'> & { mediaStreamState?: Partial<MediaStreamState> };

/** The counters of the frames of one stream. */
export interface FrameCounters {
  /** Which meeting or widget: its kind and its number in this process. */
  owner: string;
  /** Type and index: "remote-0". */
  stream: string;
  /** Delivered to the application. */
  delivered: number;
  /**
   * Frames between those delivered that the application did not get, by their identifiers: lost on
   * the network, or skipped because of the rate or of a slow application. Always 0 in a widget,
   * whose frames have no identifiers.
   */
  skipped: number;
  /** Released by the application. */
  released: number;
}

/**
 * One engine with its events, promises for the results that arrive as events, and its frames.
 * `wrapper` has all other operations.
 *
 * A meeting belongs to the application and lives until it is closed: nobody has to hold it for its
 * listeners to be called. Its promises reject with a `ClosedError` when it is closed, but for those
 * for the end of something, which closing ends as well. A rejection that nobody handles is reported by
 * node, but for those of `waitFor`. `console.log()` shows `isClosed`, the call's state, `streams`,
 * those in widget mode, and the counters.
 */
export class Meeting implements Disposable {
  private constructor();

  /**
   * Makes an engine, which blocks until it is initialised. Its shared memory and its log are made
   * readable for this user alone. A second meeting within one second of the process waits for the
   * next one, as it does in a second that has been before, when the clock was set back. Rejects with a
   * `TypeError`, before it waits, for a property that is missing, of another type or not listed.
   *
   * Replaces the emitter factory of `TesselWrapper`.
   */
  static open(params: MeetingParams, options?: Pick<Limits, 'signal'>): Promise<Meeting>;

  /** The engine's other operations. */
  readonly wrapper: TesselWrapper;
  /** The present streams in the order in which they were added, each with its latest event. */
  readonly streams: StreamEvent[];
  /**
   * The participants, as in the latest event of this name. It comes a moment after `join` and `leave`
   * have resolved and after the end of the call; a meeting that is closed in a call keeps the last
   * list. The list cannot be changed.
   */
  readonly participants: readonly Participant[];
  readonly isClosed: boolean;

  on<Name extends MeetingEventName>(
    event: Name,
    listener: (payload: MeetingEvents[Name]) => void,
  ): this;
  once<Name extends MeetingEventName>(
    event: Name,
    listener: (payload: MeetingEvents[Name]) => void,
  ): this;
  off<Name extends MeetingEventName>(
    event: Name,
    listener: (payload: MeetingEvents[Name]) => void,
  ): this;

  /**
   * The payload of the next such event. It listens from the moment it is called, so no event is
   * lost when it is called before the operation that causes the event, and awaited afterwards. A
   * rejection before it is awaited is not reported as unhandled, unless its arguments are invalid.
   */
  waitFor<Name extends MeetingEventName>(
    event: Name,
    options?: WaitOptions<MeetingEvents[Name]>,
  ): Promise<MeetingEvents[Name]>;
  /**
   * The events of these names in the order in which they arrive. It listens from the moment it is
   * called, and queues events until they are requested. It ends with the loop, the signal or the
   * meeting.
   */
  events<Name extends MeetingEventName>(
    names: readonly Name[],
    options?: Pick<Limits, 'signal'>,
  ): AsyncIterableIterator<MeetingEvent<Name>>;

  /**
   * Joins a meeting. Sets both mutes, whatever they were before. Rejects with a `CallError` when it
   * is refused, with a `TypeError` for an unknown property. A join that exceeds its limits is ended
   * at the engine.
   */
  join(params: JoinParams, limits?: Limits): Promise<void>;
  /**
   * Leaves the call and tells how it ended; `undefined` when there was none, or when the meeting was
   * closed meanwhile.
   */
  leave(limits?: Limits): Promise<CallDisconnect | undefined>;

  /** Rejects with a `ShareError` when it is denied, with a `CallError` when the call ends. */
  requestContentShareToken(limits?: Limits): Promise<void>;
  /**
   * Settles at once without the token, and without an unanswered request for it, and when the meeting
   * is closed meanwhile.
   */
  releaseContentShareToken(limits?: Limits): Promise<void>;
  /**
   * Needs the token. Rejects with a `ShareError` when it is denied or fails, with a `CallError` when
   * the call ends.
   */
  startPresentation(params: ContentShareParams, limits?: Limits): Promise<void>;
  /**
   * Settles at once when nothing is presented, nor may be yet, for a start that was given up, and when
   * the meeting is closed meanwhile.
   */
  stopPresentation(limits?: Limits): Promise<void>;

  /**
   * The stream's frames at no more than the chosen rate, each the newest one when it is requested;
   * none is queued. After a picture one `ClearFrame` reports that the stream no longer has a
   * picture. Ends when the stream is removed, and with the meeting; waits for a stream that is not
   * there yet, and `return()` ends the wait at once. Throws a `TypeError` for an invalid stream.
   *
   * The planes of a frame are valid in the loop's body, as long as nothing else reads the same
   * stream.
   */
  frames(stream: StreamKey, options?: FrameOptions): AsyncGenerator<ReceivedFrame, void, void>;

  /**
   * Copies the stream's frames into shared memory, for a `Widget` in a second process, which is made
   * with the answer, until `exitWidgetMode` or the end of the stream. The memory is readable for
   * this user alone. Entering again within one second waits for the next one, and rejects when the
   * stream leaves meanwhile. Rejects for a stream that is not there, with a `RangeError` for a remote
   * one outside 0 to 49, once the widget process has ended by itself, since a meeting has one in its
   * life, and when /dev/shm has no room for it; before the wait, but for the last. Frames of more
   * than 1600x864 pixels do not fit into the memory and are not copied.
   */
  enterWidgetMode(stream: StreamKey, options?: Pick<Limits, 'signal'>): Promise<SharedDataInfo>;
  /** Does nothing when the stream is not in widget mode and does not wait to enter it. */
  exitWidgetMode(stream: StreamKey): void;

  /** What became of its frames, by stream. */
  counters(): FrameCounters[];

  /**
   * Shuts the engine down, so that the process can end by itself. Pending promises reject, and
   * loops over frames and events end, even when the engine fails to shut down, whose error is then
   * thrown. Does nothing the second time.
   */
  close(): void;
  [Symbol.dispose](): void;
}

// ---- The widget

/** Every type except promises. */
export type Synchronous<Result> = Result extends PromiseLike<unknown> ? never : Result;

/**
 * Reads, in a second process, the streams that a meeting has in widget mode. A meeting has one
 * widget process during its lifetime: `remove`, and the end of the process, remove the names by
 * which another process could open the memory.
 *
 * Pictures are read in place, while their writer waits: draw or copy them, and return.
 */
export class Widget implements Disposable {
  /** Takes the result of `Meeting.enterWidgetMode`. Throws when that memory no longer exists. */
  constructor(names: SharedDataInfo);

  readonly proxy: TesselWrapperProxy;
  readonly isClosed: boolean;

  /**
   * Calls `use` with the stream's picture and returns what it returned; `undefined`, without a call,
   * when there is no picture. The frame is released when `use` returns or throws, so `use` must not
   * be asynchronous, nor read the same stream. It may close the widget or remove the stream, which
   * then goes when `use` returns.
   */
  read<Result>(
    stream: StreamKey,
    use: (frame: PictureFrame) => Synchronous<Result>,
  ): Result | undefined;
  /**
   * Does the same at the chosen rate until the signal or the end of the widget. A picture that has
   * not changed is delivered again. Rejects with what `use` throws, and with a `ClosedError` when
   * the widget was closed before.
   */
  watch<Result>(
    stream: StreamKey,
    use: (frame: PictureFrame) => Synchronous<Result>,
    options?: FrameOptions,
  ): Promise<void>;
  /** Closes the stream's memory and removes its names. */
  remove(stream: StreamKey): void;

  /** What became of its frames, by stream. */
  counters(): FrameCounters[];

  /** Closes all streams. Does nothing the second time. */
  close(): void;
  [Symbol.dispose](): void;
}

// ---- What can be done with a frame

/**
 * Copies the planes Y, U and V one after the other with tightly packed rows: into the first bytes
 * of `target`, returning that part as an array of the same class, or into a new `Uint8Array`.
 * Throws when the planes are no longer valid, a `TypeError` without a picture or when `target` is
 * another kind of array, and a `RangeError` when it is too small.
 */
export function copyI420(
  frame: PictureFrame,
  target?: undefined,
): ReturnType<typeof Uint8Array.from>;
export function copyI420<Target extends Uint8Array | Uint8ClampedArray>(
  frame: PictureFrame,
  target: Target,
): Target;

/**
 * Copies the picture as red, green, blue and alpha bytes, row after row. Treats `target` as
 * `copyI420` does, and throws as it does; without one, returns a new `Uint8ClampedArray`, which is
 * what `ImageData` takes.
 */
export function copyRgba(
  frame: PictureFrame,
  target?: undefined,
): ReturnType<typeof Uint8ClampedArray.from>;
export function copyRgba<Target extends Uint8Array | Uint8ClampedArray>(
  frame: PictureFrame,
  target: Target,
): Target;

/** The counters of all open meetings and widgets of this process. */
export function frameCounters(): FrameCounters[];

// ---- Errors

/** The engine did not join the call, or ended it. */
export class CallError extends Error {
  private constructor();
  readonly callId: number;
  readonly reason: string;
  readonly code: number;
}

/** The engine denied a request about content sharing, or it failed. */
export class ShareError extends Error {
  private constructor();
  readonly status: ShareStatus;
}

/** The expected event did not arrive in time. */
export class TimeoutError extends Error {
  private constructor();
}

/** The meeting, or the widget, was closed. */
export class ClosedError extends Error {
  private constructor();
}
