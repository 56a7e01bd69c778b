// Valid arguments for the wrapper's methods.

import { remote } from '../streams.mjs';

const mediaStreamState = () => ({
  contentStreamEnabled: true,
  incomingAudioEnabled: false,
  incomingVideoEnabled: true,
  outgoingAudioMuted: false,
  outgoingVideoMuted: true,
});

const audioInDevice = () => ({
  audioInId: 'in id',
  audioInName: 'in name',
  audioInSourceName: 'in source',
});

const audioOutDevice = () => ({
  audioOutId: 'out id',
  audioOutName: 'out name',
  audioOutSourceName: 'out source',
});

const videoDevice = () => ({
  videoDeviceId: 'camera id',
  videoDeviceName: 'camera name',
  capability: { width: 640, height: 480, maxFPS: 15 },
});

const turnServer = (number) => ({
  protocol: `protocol ${number}`,
  fqdn: `fqdn ${number}`,
  address: `address ${number}`,
  port: 100 + number,
  username: `username ${number}`,
  password: `secret ${number}`,
  priority: 200 + number,
  bandwidth: 300 + number,
});

const connectParams = () => ({
  uri: 'tessel:demo',
  endpointName: 'endpoint',
  meetingGuid: 'guid',
  maxBandwidth: 2048,
  forceTurn: true,
  enableRdc: false,
  isVesperMeeting: true,
  enableClientDrivenLayouts: false,
  enableClientLayoutOrdering: true,
  meetingAttributes: 'attributes',
  meetingFeatures: ['first feature', 'second feature'],
  gracefulEvents: [
    { event: 'first event', enabled: true },
    { event: 'second event', enabled: false },
  ],
  mediaStreamState: mediaStreamState(),
  turnServers: [turnServer(1), turnServer(2)],
});

const videoStreamsState = () => ({
  VideoStreamState: {
    VideoStreamInfos: [
      { ssrc: 11, participantSsrc: 12, speakerGroup: 13, priority: 14 },
      { ssrc: 21, participantSsrc: 22, speakerGroup: 23, priority: 24 },
    ],
    VideoOccupancyConstraints: [
      [{ maxquality: 720, maxfps: 30, minquality: 180, minfps: 7 }],
      [
        { maxquality: 360, maxfps: 15, minquality: 90, minfps: 3 },
        { maxquality: 90, maxfps: 7, minquality: 45, minfps: 3 },
      ],
    ],
  },
});

const stream = () => remote(3);

// A complete new argument list by the name of the method, in the order of registration. Values
// differ, so that exchanged ones are detected.
export const goodArguments = {
  destroy: () => [],
  on: () => ['micLevel', () => {}],
  connectCall: () => [connectParams()],
  disconnectCall: () => [],
  updateMediaStreamState: () => [mediaStreamState()],
  muteLocalVideo: () => [true],
  muteLocalAudio: () => [true],
  setRemoteAudioMute: () => [true],
  enableCameraCapture: () => [true],
  startPresentation: () => [{ type: 'window', screenId: 1, applicationId: 2, windowId: 3 }],
  stopPresentation: () => [],
  requestContentShareToken: () => [],
  releaseContentShareToken: () => [],
  selectDevices: () => [
    {
      videoDevice: videoDevice(),
      audioInDevice: audioInDevice(),
      audioOutDevice: audioOutDevice(),
    },
  ],
  setVideoDevice: () => [videoDevice()],
  setAudioInDevice: () => [audioInDevice()],
  setAudioOutDevice: () => [audioOutDevice()],
  setAudioDebug: () => [true],
  sendAudioDeviceStats: () => [
    { isSpeakerMuted: true, speakerVolume: 70, isMicMuted: false, micVolume: 80 },
  ],
  registerEvent: () => [
    { eventName: 'roster', expires: 3600, mimeType: 'application', mimeSubType: 'json' },
  ],
  unregisterEvent: () => [{ eventName: 'roster' }],
  getFrame: () => [stream(), 0],
  releaseFrame: () => [],
  updateConfigData: () => [{ configData: 'text' }],
  getConfigData: () => [],
  configureMeetingStats: () => [{ enable: true, timerDuration: 1000 }],
  getMeetingStats: () => [],
  getScreenMonitorDetails: () => [],
  updateVideoStreamsState: () => [videoStreamsState()],
  getLastFrame: () => [stream()],
  enterWidgetMode: () => [stream()],
  exitWidgetMode: () => [stream()],
  getSharedDataInfo: () => [],
  getMediaMeetingAttributes: () => [],
};
