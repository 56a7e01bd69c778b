// A meeting in a process that runs a test's commands.

import { obey } from '../commanded_process.mjs';
import { joinMeeting } from '../face.mjs';

let meeting;

obey({
  isThere: () => true,
  async join(uri, count) {
    meeting = await joinMeeting(undefined, uri, count);
  },
  enter: (stream) => meeting.enterWidgetMode(stream),
  exit: (stream) => meeting.exitWidgetMode(stream),
  end: () => meeting.close(),
});
