// The application's meeting: one call, the state known from the engine's events, and the commands
// of the page. Emits 'change' when the state has changed; 'levels', 'statistics' and 'log' with the
// new values; 'windowLeft' with the name of a stream that no longer has a window; and 'windowBlank'
// with the name of a stream with a window, and whether it has no picture from now on.

import { EventEmitter } from 'node:events';

import { CallError, ClosedError, EVENT_NAMES, Meeting } from 'tessel-wrapper';
import { Devices } from './devices.mjs';
import { videoStreamsState } from './layout.mjs';
import { nameOf, streamNamed } from './stream_names.mjs';

const STATISTICS_INTERVAL_MS = 1000;
// Two minutes, for a page that connects later.
const MOST_STATISTICS = 120;
const MOST_LOG_ENTRIES = 200;

const NO_SHARE = { phase: 'none', text: '' };
const LOCAL = { type: 'local', streamIndex: 0 };
const FRAME_RATE = 30;
// Sufficient for the user's own picture.
const LOCAL_FRAME_RATE = 15;

// A 'micLevel', five times a second, is shown as a level, and participants are shown as tiles. The room
// registers no other event that 'eventNotify' could carry.
const UNLOGGED = ['micLevel', 'participants', 'eventNotify'];
// Events that are logged unchanged.
const LOGGED = EVENT_NAMES.filter((name) => !UNLOGGED.includes(name));

export class Room extends EventEmitter {
  #uri;
  #hint;
  #name;
  #meeting;
  #layout = new Map(); // { height, frameRate } by stream name, the most important first
  // { height, leaving, isBlank } of streams that have a window of their own, by name
  #windows = new Map();
  #statisticsTimer;
  #logCount = 0;

  #call = { phase: 'notJoined', reason: '' }; // or 'joining', 'joined', 'left'
  #local = { audioMuted: false, videoMuted: false, cameraOn: true, speakerMuted: false };
  #devices;
  #share = NO_SHARE; // or 'asking', 'sharing', 'refused'
  #widget = { phase: 'starting', address: '' }; // or 'running', 'ended'

  levels = { microphone: 0, speaker: 0 };
  statistics = [];
  log = [];

  static async open({ logPath, ...described }) {
    return new Room(described, await Meeting.open({ logPath, logPrefix: 'meeting-' }));
  }

  // Takes ownership of `meeting`. `name` is the local participant's name for the others, `hint` what
  // the page says about the meeting, if anything.
  constructor({ uri, name, hint = '' }, meeting) {
    super();
    this.setMaxListeners(0);
    this.#uri = uri;
    this.#hint = hint;
    this.#name = name;
    this.#devices = new Devices(uri);
    this.#meeting = meeting;
    for (const name of LOGGED) {
      meeting.on(name, (payload) => {
        this.#handlers[name]?.(payload);
        this.note(name, payload);
        this.emit('change');
      });
    }
    meeting.on('participants', () => this.emit('change'));
    meeting.on('micLevel', ({ level }) => this.#hear({ microphone: level }));
    meeting.wrapper.configureMeetingStats({ enable: true, timerDuration: STATISTICS_INTERVAL_MS });
    this.#statisticsTimer = setInterval(() => this.#measure(), STATISTICS_INTERVAL_MS);
    meeting.wrapper.enableCameraCapture(true);
  }

  // The state that a page shows, except the values with their own events.
  get state() {
    return {
      call: this.#call,
      hint: this.#hint,
      local: this.#local,
      streams: this.#streams(),
      devices: this.#devices.all,
      selected: this.#devices.selected,
      share: this.#share,
      monitors: this.#meeting.wrapper.getScreenMonitorDetails(),
      widget: this.#widget,
    };
  }

  // The present streams with a known type, and always the local one, whose frames depend on the
  // camera.
  #streams() {
    const named = this.#meeting.streams.filter((stream) => streamNamed(nameOf(stream)));
    const present = new Map(named.map((stream) => [nameOf(stream), stream]));
    const isLocalSending = present.has(nameOf(LOCAL));
    if (!isLocalSending) present.set(nameOf(LOCAL), { ...LOCAL, csrc: 0 });
    const people = new Map(this.#meeting.participants.map((each) => [nameOf(each.stream), each]));
    return Array.from(present, ([name, stream]) => ({
      ...stream,
      name,
      title: titleOf(stream, people.get(name)),
      isSpeaking: people.get(name)?.speaking ?? false,
      isSending: stream.type !== 'local' || isLocalSending,
      inWindow: this.#windows.has(name),
    }));
  }

  // The names with which a widget process opens the memory.
  get sharedDataInfo() {
    return this.#meeting.wrapper.getSharedDataInfo();
  }

  // The stream's frame objects whenever it is present, until `signal` is aborted.
  async *frames(stream, signal) {
    const rate = stream.type === 'local' ? LOCAL_FRAME_RATE : FRAME_RATE;
    while (!this.#meeting.isClosed) yield* this.#meeting.frames(stream, { rate, signal });
  }

  // The commands of the page. Each rejects or throws when it is not possible.
  commands = {
    join: () => this.join(),
    leave: () => this.#meeting.leave(),
    muteAudio: ({ muted }) => this.#meeting.wrapper.muteLocalAudio(muted),
    muteSpeaker: ({ muted }) => {
      this.#meeting.wrapper.setRemoteAudioMute(muted);
      this.#change(() => (this.#local = { ...this.#local, speakerMuted: muted }));
    },
    camera: ({ on }) => this.#switchCamera(on),
    device: ({ kind, id }) => this.#choose(kind, id),
    share: ({ what }) => this.#present(what),
    stopShare: () => this.#meeting.stopPresentation(),
    layout: ({ tiles }) => this.#arrange(tiles),
    bringBack: ({ stream }) => this.leaveWindow(stream),
  };

  // Settles when the engine has answered (with the reason of a refusal, which is also part of the
  // state), or when the join is cancelled by leaving or closing. A second request joins the first
  // one.
  async join() {
    if (['joining', 'joined'].includes(this.#call.phase)) return undefined;
    this.#change(() => (this.#call = { phase: 'joining', reason: '' }));
    const { audioMuted, videoMuted } = this.#local;
    try {
      await this.#meeting.join({
        uri: this.#uri,
        endpointName: this.#name,
        mediaStreamState: { outgoingAudioMuted: audioMuted, outgoingVideoMuted: videoMuted },
      });
    } catch (error) {
      if (error instanceof CallError) return reasonOf(error);
      if (error instanceof ClosedError) return undefined;
      this.#change(() => (this.#call = { phase: 'notJoined', reason: error.message }));
      throw error;
    }
    return undefined;
  }

  // Gives a present stream a window of this height in the widget process, or changes the height of
  // its window.
  async enterWindow(name, height) {
    if (!this.#has(name)) return;
    const window = this.#windows.get(name) ?? { leaving: new AbortController(), isBlank: false };
    window.height = height;
    this.#windows.set(name, window);
    this.#sendLayout();
    this.emit('change');
    await this.#fillWindow(name);
  }

  leaveWindow(name) {
    const { leaving } = this.#windows.get(name) ?? {};
    if (!leaving) return;
    this.#windows.delete(name);
    leaving.abort();
    this.#meeting.exitWidgetMode(streamNamed(name));
    this.#sendLayout();
    this.emit('change');
    this.emit('windowLeft', name);
  }

  leaveWindows() {
    for (const name of [...this.#windows.keys()]) this.leaveWindow(name);
  }

  // Makes new segments for the streams with windows, since a killed process may hold the old ones'
  // locks.
  async renewWindows() {
    const names = [...this.#windows.keys()];
    for (const name of names) this.#meeting.exitWidgetMode(streamNamed(name));
    await Promise.all(names.map((name) => this.#fillWindow(name)));
  }

  setWidget(phase, address) {
    this.#change(() => (this.#widget = { phase, address }));
  }

  // Adds an entry to the log.
  note(name, payload = {}) {
    this.#logCount += 1;
    const entry = { number: this.#logCount, time: Date.now(), name, payload };
    this.log.push(entry);
    if (this.log.length > MOST_LOG_ENTRIES) this.log.shift();
    this.emit('log', entry);
  }

  close() {
    clearInterval(this.#statisticsTimer);
    this.#meeting.close();
  }

  // Updates the state by the engine's events.
  #handlers = {
    callConnectionStatus: ({ connected }) => {
      if (connected) this.#call = { phase: 'joined', reason: '' };
    },
    callDisconnect: (end) => {
      const phase = this.#call.phase === 'joined' ? 'left' : 'notJoined';
      this.#call = { phase, reason: reasonOf(end) };
      this.#share = NO_SHARE;
      this.#hear({ microphone: 0, speaker: 0 });
    },
    streamAdded: (stream) => {
      // The engine ignores streams of a layout that are not present: send the layout again.
      if (this.#layout.has(nameOf(stream))) this.#sendLayout();
    },
    streamUpdated: (stream) => {
      const window = this.#windows.get(nameOf(stream));
      if (window && !window.isBlank) this.#blank(window, stream);
    },
    streamRemoved: (stream) => this.leaveWindow(nameOf(stream)),
    mediaMuteState: ({ mediaType, muted }) => {
      const what = mediaType === 'audio' ? 'audioMuted' : 'videoMuted';
      this.#local = { ...this.#local, [what]: muted };
      if (what === 'audioMuted' && muted) this.#hear({ microphone: 0 });
    },
    deviceChange: ({ id }) => this.#devices.turnAround(id),
    screenShareStatus: ({ status }) => {
      if (status === 'stopped') this.#stopped();
    },
  };

  #change(change) {
    change();
    this.emit('change');
  }

  #has(name) {
    return this.#meeting.streams.some((stream) => nameOf(stream) === name);
  }

  // Puts a stream into widget mode for its window; on failure the stream has no window.
  async #fillWindow(name) {
    const { leaving } = this.#windows.get(name);
    try {
      await this.#meeting.enterWidgetMode(streamNamed(name));
      if (!this.#windows.has(name)) this.#meeting.exitWidgetMode(streamNamed(name));
    } catch (error) {
      if (leaving.signal.aborted) return;
      this.leaveWindow(name);
      throw error;
    }
  }

  // The memory keeps the last picture of a stream without a picture: reports when the stream has no
  // picture any more, and when it has one again.
  async #blank(window, stream) {
    const { signal } = window.leaving;
    const tell = (isBlank) => {
      window.isBlank = isBlank;
      this.emit('windowBlank', nameOf(stream), isBlank);
    };
    try {
      const { noUpdate, clearFrame } = this.#meeting.wrapper.getFrame(stream, 0);
      if (!noUpdate || !clearFrame) return;
      tell(true);
      const frames = this.#meeting.frames(stream, { signal });
      await frames.next(); // the next picture
      await frames.return();
      tell(false);
    } catch ({ message }) {
      if (!signal.aborted) this.note('error', { message });
    }
  }

  #switchCamera(on) {
    this.#meeting.wrapper.enableCameraCapture(on);
    // The meeting may have muted the video: switching the camera on also unmutes it.
    if (on && this.#local.videoMuted) this.#meeting.wrapper.muteLocalVideo(false);
    this.#change(() => (this.#local = { ...this.#local, cameraOn: on }));
  }

  #choose(kind, id) {
    const { title } = this.#devices.pluggedIn(kind, id);
    const { wrapper } = this.#meeting;
    if (kind === 'camera') {
      wrapper.setVideoDevice({ videoDeviceId: id, videoDeviceName: title });
    } else if (kind === 'microphone') {
      wrapper.setAudioInDevice({ audioInId: id, audioInName: title, audioInSourceName: title });
    } else {
      wrapper.setAudioOutDevice({ audioOutId: id, audioOutName: title, audioOutSourceName: title });
    }
    this.#change(() => this.#devices.select(kind, id));
  }

  // Shares `what`, the engine's description of a screen, an application or a window, instead of a
  // source that is already shared.
  async #present(what) {
    if (this.#share.phase === 'asking') throw new Error('A share is being asked for already');
    const text = describeShare(what);
    try {
      if (this.#share.phase !== 'sharing') {
        this.#change(() => (this.#share = { phase: 'asking', text }));
        await this.#meeting.requestContentShareToken();
      }
      await this.#meeting.startPresentation(what);
      this.#change(() => (this.#share = { phase: 'sharing', text }));
    } catch (error) {
      if (this.#call.phase !== 'joined') {
        this.#change(() => (this.#share = NO_SHARE));
        throw error;
      }
      const isTaken = error.status === 'token_denied';
      const reason = isTaken ? 'Somebody else is presenting.' : 'This cannot be shared.';
      this.#change(() => (this.#share = { phase: 'refused', text: reason }));
      if (!isTaken) await this.#meeting.releaseContentShareToken();
      throw error;
    }
  }

  #stopped() {
    this.#share = NO_SHARE;
    // The call has ended, and the token with it.
    this.#meeting.releaseContentShareToken().catch(() => {});
  }

  // `tiles` is what the page shows: { stream: NAME, height, frameRate } each.
  #arrange(tiles) {
    const layout = new Map();
    for (const { stream, height, frameRate } of tiles) {
      if (!(streamNamed(stream) && Number.isFinite(height) && Number.isFinite(frameRate))) {
        throw new TypeError(`no such tile: ${stream} of ${height} at ${frameRate}`);
      }
      layout.set(stream, { height, frameRate });
    }
    this.#layout = layout;
    this.#sendLayout();
  }

  #sendLayout() {
    const wanted = new Map(this.#layout);
    for (const [name, { height }] of this.#windows) {
      wanted.set(name, { height, frameRate: FRAME_RATE });
    }
    const sources = new Map(this.#meeting.streams.map((stream) => [nameOf(stream), stream.csrc]));
    const tiles = [...wanted]
      .filter(([name]) => sources.has(name) && streamNamed(name).type === 'remote')
      .map(([name, tile]) => ({ ...tile, csrc: sources.get(name) }));
    this.#meeting.wrapper.updateVideoStreamsState(videoStreamsState(tiles));
  }

  #hear(levels) {
    this.levels = { ...this.levels, ...levels };
    this.emit('levels', this.levels);
  }

  #measure() {
    const measured = { time: Date.now(), ...this.#meeting.wrapper.getMeetingStats() };
    this.statistics.push(measured);
    if (this.statistics.length > MOST_STATISTICS) this.statistics.shift();
    this.emit('statistics', measured);
    this.#hear({ speaker: measured.audio_stats.output_level });
  }
}

// The title of a stream. The participant may be unknown yet, or have no name.
function titleOf({ type, streamIndex }, participant) {
  if (type === 'local') return 'You';
  if (type === 'content') return 'Shared content';
  return participant?.name || `Guest ${streamIndex + 1}`;
}

// The reason of the end of a call; empty when the user left.
const reasonOf = ({ reason, code }) => (code === 0 ? '' : `${reason} (${code})`);

function describeShare({ type, screenId = 0, applicationId, windowId }) {
  if (type === 'screen') return `Screen ${screenId + 1}`;
  return type === 'application' ? `Application ${applicationId}` : `Window ${windowId}`;
}
