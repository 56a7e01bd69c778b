// Joins a meeting of four participants and shared content on the embedded engine, prints its events
// as they arrive, polls the frames of every stream for some seconds, and ends with a table and one
// picture for each stream. A widget, a second process, reads the first participant's stream through
// shared memory meanwhile and has its own line in the table.
//
//   npm start                            moving test cards as video
//   npm start -- --video FILE.y4m        a clip as the participants' video
//   npm start -- --seconds 10            how long to stay
//   npm start -- --output DIRECTORY      where the pictures go (default: out/)

import { EventEmitter, on, once } from 'node:events';
import { constants } from 'node:os';
import path from 'node:path';
import { setTimeout } from 'node:timers/promises';

import { EVENT_NAMES, TesselWrapper } from 'tessel-wrapper';
import { connectParams } from './support/connect_params.mjs';
import { makeOutputDirectory, readOptions, refuseUsage } from './support/options.mjs';
import { StreamWatch } from './support/stream_watch.mjs';
import { WidgetChild } from './support/widget_child.mjs';

const WIDGETS_STREAM = { type: 'remote', streamIndex: 0 };

// The options that describe the meeting.
const PAGE_OPTIONS = ['participants', 'uri', 'name', 'port'];

const USAGE = 'Options without a page: --video, --seconds and --output.';

function terminalOptions() {
  const values = readOptions(
    {
      video: { type: 'string' },
      seconds: { type: 'string', default: '5' },
      output: { type: 'string', default: 'out' },
      ...Object.fromEntries(PAGE_OPTIONS.map((name) => [name, { type: 'string' }])),
    },
    USAGE,
  );
  for (const name of PAGE_OPTIONS) {
    if (values[name] !== undefined) refuseUsage(`--${name} is for the meeting with a page`, USAGE);
  }
  const seconds = Number(values.seconds);
  if (!(seconds > 0)) refuseUsage(`--seconds ${values.seconds}: not a positive number`, USAGE);
  return { ...values, seconds };
}

// Four participants, one of whom presents; with `video`, a clip instead of their test cards.
function meetingUri({ video }) {
  const clip = video === undefined ? '' : `&video=${encodeURIComponent(path.resolve(video))}`;
  return `tessel:demo?participants=4&present=1@0${clip}`;
}

// Resolves when the engine has answered: true when joined, false when refused, after printing why.
async function join(wrapper, emitter, uri) {
  const answer = once(emitter, 'callConnectionStatus');
  wrapper.connectCall(connectParams(uri));
  const [{ connected }] = await answer;
  if (!connected) await once(emitter, 'callDisconnect');
  return connected;
}

// Resolves when the meeting has the stream, which may be later than the answer to joining.
async function streamToBeThere(emitter, { type, streamIndex }) {
  for await (const [stream] of on(emitter, 'streamAdded')) {
    if (stream.type === type && stream.streamIndex === streamIndex) return;
  }
}

async function leave(wrapper, emitter) {
  const left = once(emitter, 'callDisconnect');
  wrapper.disconnectCall();
  await left;
}

// A process that one of these kills would leave its names in /dev/shm.
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) {
  process.once(signal, () => process.exit(128 + constants.signals[signal]));
}

const options = terminalOptions();
makeOutputDirectory(options, USAGE);
const emitter = new EventEmitter(); // the wrapper holds it weakly
TesselWrapper._internal_setEmitterFactory(() => emitter);
const wrapper = new TesselWrapper({
  appVersion: '1.0.0',
  configPath: '',
  logPath: options.output,
  logPrefix: 'terminal-meeting-',
  userAgent: 'terminal meeting',
});
const watch = new StreamWatch(wrapper);
for (const name of EVENT_NAMES) {
  wrapper.on(name, (payload) => console.log('event', name, JSON.stringify(payload)));
}
wrapper.on('streamAdded', (stream) => watch.add(stream));

const widgetsStream = streamToBeThere(emitter, WIDGETS_STREAM);
if (await join(wrapper, emitter, meetingUri(options))) {
  wrapper.enableCameraCapture(true);
  watch.add({ type: 'local', streamIndex: 0 });
  await widgetsStream;
  wrapper.enterWidgetMode(WIDGETS_STREAM);
  const widget = await WidgetChild.start(wrapper.getSharedDataInfo(), WIDGETS_STREAM);
  await setTimeout(options.seconds * 1000);
  const widgetsRow = await widget.stop();
  console.table([...watch.table(), widgetsRow]);
  const files = watch.writePictures(options.output);
  for (const file of files) console.log('picture', file);
  wrapper.exitWidgetMode(WIDGETS_STREAM);
  await leave(wrapper, emitter);
} else {
  process.exitCode = 1;
}
watch.stop();
wrapper.destroy();
