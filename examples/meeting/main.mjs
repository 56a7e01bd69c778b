// A meeting, on the embedded engine unless a uri says otherwise, shown by a page on this machine's
// loopback interface.

import path from 'node:path';

import {
  checkPort,
  isHelpWanted,
  makeOutputDirectory,
  readOptions,
  refuseUsage,
} from '../support/options.mjs';

const HEADLESS = '--headless';
const MOST_PARTICIPANTS = 50;

const USAGE =
  'Options: --participants and --video, or --uri instead of both; --name, --port and --output with ' +
  'either; or --headless with --video, --seconds and --output.';

const HELP = `A meeting on the embedded engine, shown by a page on the loopback interface.

  npm start                             prints the address to open
  npm start -- --participants 12        how many others are there (default: 5)
  npm start -- --video FILE.y4m         a clip as their video
  npm start -- --uri tessel:...         any meeting of the embedded engine, instead of both
  npm start -- --uri janus+ws://...     a real meeting; npm run sfu opens a room and prints its uri.
                                        Without a camera a test card is sent
  npm start -- --name Ada               your name for the others (default: the user's name)
  npm start -- --port 8080              a port of one's own choice
  npm start -- --output DIRECTORY       where the engine's log goes (default: out/)

  npm start -- --headless               joins, looks and leaves without a page
  npm start -- --headless --seconds 10  how long it stays (default: 5); also --video, --output
`;

function meetingOptions() {
  const options = readOptions(
    {
      participants: { type: 'string' },
      video: { type: 'string' },
      uri: { type: 'string' },
      name: { type: 'string', default: process.env.USER || 'Guest' },
      port: { type: 'string', default: '0' },
      output: { type: 'string', default: 'out' },
    },
    USAGE,
  );
  const { uri, participants, video, port } = options;
  if (uri !== undefined && (participants ?? video) !== undefined) {
    refuseUsage('--uri describes the whole meeting', USAGE);
  }
  if (!/^\d+$/.test(participants ?? '0') || Number(participants) > MOST_PARTICIPANTS) {
    const reason = `not a number from 0 to ${MOST_PARTICIPANTS}`;
    refuseUsage(`--participants ${participants}: ${reason}`, USAGE);
  }
  checkPort('--port', port, USAGE);
  return options;
}

function uriOf({ uri, participants = '5', video }) {
  const clip = video === undefined ? '' : `&video=${encodeURIComponent(path.resolve(video))}`;
  return uri ?? `tessel:demo?participants=${encodeURIComponent(participants)}${clip}`;
}

// Each engine has its own uris. The engine is selected before the package is imported, and the
// widget process uses the same one.
function chooseEngine(uri) {
  if (uri.startsWith('janus+')) process.env.TESSEL_WRAPPER_ENGINE = 'webrtc';
}

// A real meeting gets a test card where there is no camera and the uri names nothing in its place.
// Answers with the uri, and with what the page says about it.
async function withCamera(uri) {
  if (!uri.startsWith('janus+') || !uri.includes('?') || /[?&]camera=/.test(uri)) return { uri };
  const { buildDirectory } = await import('../../js/load_addon.js');
  const { hasCamera } = await import('../../js/real_meetings.js');
  if (hasCamera(buildDirectory())) return { uri };
  return { uri: `${uri}&camera=card`, hint: 'No camera: a test card is sent' };
}

// A missing addon or engine is reported by its message alone, which names the command that builds it.
async function importRoom() {
  try {
    return await import('./room.mjs');
  } catch ({ message }) {
    console.error(message);
    return process.exit(1);
  }
}

async function openMeeting(options) {
  const { uri, hint } = await withCamera(uriOf(options));
  chooseEngine(uri);
  const { PageServer } = await import('./page_server.mjs');
  const { PageSession } = await import('./page_session.mjs');
  const { Room } = await importRoom();
  const { WidgetHost } = await import('./widget_host.mjs');
  const { pageFiles } = await import('./page_files.mjs');

  makeOutputDirectory(options, USAGE);
  const room = await Room.open({ uri, hint, name: options.name, logPath: options.output });
  const widget = new WidgetHost(room);
  for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.once(signal, close);
  let session;
  const server = new PageServer({
    files: pageFiles('meeting.html'),
    port: Number(options.port),
    onConnection: (socket) => {
      session?.end('The meeting is shown by another page.');
      session = new PageSession(socket, room);
    },
  });
  try {
    await server.listen();
  } catch ({ message }) {
    refuseUsage(`--port ${options.port}: ${message}`, USAGE);
  }
  const joined = room.join();
  // A uri may cause a late answer, or a refusal, which the page shows.
  if (options.uri === undefined) {
    const refusal = await joined;
    if (refusal) refuseUsage(`The meeting cannot be joined: ${refusal}`, USAGE);
  }
  console.log(`\nThe meeting is at ${server.address}\nCtrl-C ends it.\n`);
  const refusal = await joined;
  if (refusal) console.error(`The meeting cannot be joined: ${refusal}`);

  async function close() {
    widget.close();
    await server.close();
    room.close();
  }
}

if (isHelpWanted()) {
  process.stdout.write(HELP);
} else if (process.argv.includes(HEADLESS)) {
  process.argv = process.argv.filter((argument) => argument !== HEADLESS);
  await import('../terminal_meeting.mjs');
} else {
  await openMeeting(meetingOptions());
}
