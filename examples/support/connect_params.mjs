// The argument of connectCall.

// A complete ConnectParams object for `uri`: everything is sent and received, no relay servers.
export function connectParams(uri) {
  return {
    uri,
    endpointName: 'terminal meeting',
    meetingGuid: '',
    maxBandwidth: 4_000_000,
    forceTurn: false,
    enableRdc: false,
    isVesperMeeting: false,
    enableClientDrivenLayouts: true,
    enableClientLayoutOrdering: false,
    meetingAttributes: '',
    meetingFeatures: [],
    gracefulEvents: [],
    mediaStreamState: {
      contentStreamEnabled: true,
      incomingAudioEnabled: true,
      incomingVideoEnabled: true,
      outgoingAudioMuted: false,
      outgoingVideoMuted: false,
    },
    turnServers: [],
  };
}
