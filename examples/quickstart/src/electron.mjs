// The main process of an Electron application: joins a meeting and shows it in a window. Written to
// Electron's documentation, and not run in Electron. The argument is the meeting's uri.

import { readFileSync, readdirSync } from 'node:fs';
import { BrowserWindow, app, protocol } from 'electron';

const [uri = 'tessel:demo?participants=4'] = process.argv.slice(app.isPackaged ? 1 : 2);
const { Meeting, copyI420 } = uri.startsWith('tessel:')
  ? await import('tessel-wrapper') // simulated meetings
  : await import('tessel-wrapper/webrtc'); // real ones

const pictures = new Map(); // the newest of each stream that has one

async function follow(meeting, stream) {
  if (stream.type === 'unknown') return;
  const key = `${stream.type}-${stream.streamIndex}`;
  for await (const frame of meeting.frames(stream, { rate: 15 })) {
    if (frame.noUpdate) {
      pictures.delete(key); // the video is muted, for example
      continue;
    }
    const { csrc, width, height } = frame;
    const name = meeting.participants.find((person) => person.csrc === csrc)?.name ?? key;
    // The frame's planes are valid in this loop only; a copy stays.
    pictures.set(key, { description: { key, name, width, height }, planes: copyI420(frame) });
  }
  pictures.delete(key); // the stream has gone
}

async function join() {
  const meeting = await Meeting.open({ logPath: app.getPath('logs'), logPrefix: 'my-meeting-' });
  app.on('will-quit', () => meeting.close());
  meeting.on('streamAdded', (stream) => follow(meeting, stream));
  await meeting.join({ uri, endpointName: 'me' }); // rejects when the meeting refuses it
  meeting.wrapper.enableCameraCapture(true);
  meeting.on('callDisconnect', () => app.quit());
}

// The page comes from a scheme of the application's own, which no other program can reach.
const root = '/';
const page = new URL('../page/', import.meta.url);
const renderer = new URL('.', import.meta.resolve('tessel-wrapper/renderer'));
const files = new Map([[root, new URL('index.html', page)]]);
for (const directory of [page, renderer]) {
  for (const name of readdirSync(directory)) files.set(`${root}${name}`, new URL(name, directory));
}

function answer({ url }) {
  const { pathname } = new URL(url);
  const file = files.get(pathname);
  if (pathname === `${root}pictures`) {
    // A line that describes the pictures, and then the planes of each of them.
    const all = [...pictures.values()];
    const line = Buffer.from(`${JSON.stringify(all.map(({ description }) => description))}\n`);
    return new Response(Buffer.concat([line, ...all.map(({ planes }) => planes)]));
  }
  if (!file) return new Response(null, { status: 404 });
  const type = file.pathname.endsWith('.html') ? 'text/html' : 'text/javascript';
  return new Response(readFileSync(file), { headers: { 'Content-Type': type } });
}

const privileges = { standard: true, secure: true, supportFetchAPI: true };
protocol.registerSchemesAsPrivileged([{ scheme: 'meeting', privileges }]); // before it is ready
app.on('window-all-closed', () => app.quit());

// Not awaited: Electron is ready when this module has been evaluated.
app
  .whenReady()
  .then(async () => {
    protocol.handle('meeting', answer);
    await join();
    await new BrowserWindow({ width: 1000, height: 700 }).loadURL('meeting://page/');
  })
  .catch((error) => {
    console.error(error);
    app.exit(1);
  });
