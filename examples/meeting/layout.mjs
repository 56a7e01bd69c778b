// The page's layout in the format of the engine.

const QUALITIES = [45, 90, 180, 360, 720];
const FRAME_RATES = [3, 7, 15, 30];

// The smallest sufficient value of `ladder`, or else the largest.
const rungFor = (ladder, needed) => ladder.find((rung) => rung >= needed) ?? ladder.at(-1);

// The argument of updateVideoStreamsState for `tiles`, the most important one first: each has the
// `csrc` of its stream, its height in pixels and the most frames per second that are wanted.
export function videoStreamsState(tiles) {
  const constraints = tiles.map(({ height, frameRate }) => ({
    maxquality: rungFor(QUALITIES, height),
    maxfps: rungFor(FRAME_RATES, frameRate),
  }));
  return {
    VideoStreamState: {
      VideoStreamInfos: tiles.map(({ csrc }, place) => ({
        ssrc: csrc,
        participantSsrc: csrc,
        speakerGroup: 0,
        priority: tiles.length - place,
      })),
      // A row for every number of tiles: when a participant leaves, the others move up.
      VideoOccupancyConstraints: tiles.map((_, last) => constraints.slice(0, last + 1)),
    },
  };
}
