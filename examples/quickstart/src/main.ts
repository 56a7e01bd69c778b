// Joins a meeting and shows it on a page. The argument is the meeting's uri.

import { readFileSync, readdirSync } from 'node:fs';
import { createServer } from 'node:http';
import type { AddressInfo } from 'node:net';
import type { StreamEvent } from 'tessel-wrapper';

interface Picture {
  description: { key: string; name: string; width: number; height: number };
  planes: Uint8Array;
}

for (const name of ['SIGINT', 'SIGTERM', 'SIGHUP'] as const) {
  process.once(name, (_name: string, number: number) => process.exit(128 + number)); // leaves nothing in /dev/shm
}

const [uri = 'tessel:demo?participants=4'] = process.argv.slice(2);
const { Meeting, copyI420 } = uri.startsWith('tessel:')
  ? await import('tessel-wrapper') // simulated meetings
  : await import('tessel-wrapper/webrtc'); // real ones

const meeting = await Meeting.open({ logPath: '/tmp', logPrefix: 'my-meeting-' });
const pictures = new Map<string, Picture>(); // the newest of each stream that has one

async function follow(stream: StreamEvent) {
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

meeting.on('streamAdded', follow);
await meeting.join({ uri, endpointName: 'me' }); // rejects when the meeting refuses it
meeting.wrapper.enableCameraCapture(true);
meeting.on('callDisconnect', ({ reason }) => {
  console.log('The call has ended:', reason);
  process.exit();
});

// The page is for those who know its address: the root is random.
const root = `/${crypto.randomUUID()}/`;
const page = new URL('../page/', import.meta.url);
const renderer = new URL('.', import.meta.resolve('tessel-wrapper/renderer'));
const files = new Map([[root, new URL('index.html', page)]]);
for (const directory of [page, renderer]) {
  for (const name of readdirSync(directory)) files.set(`${root}${name}`, new URL(name, directory));
}
const server = createServer(({ url }, response) => {
  const file = files.get(url as string);
  if (url === `${root}pictures`) {
    // A line that describes the pictures, and then the planes of each of them.
    const all = [...pictures.values()];
    response.write(`${JSON.stringify(all.map(({ description }) => description))}\n`);
    response.end(Buffer.concat(all.map(({ planes }) => planes)));
  } else if (file) {
    const type = file.pathname.endsWith('.html') ? 'text/html' : 'text/javascript';
    response.setHeader('Content-Type', type).end(readFileSync(file));
  } else {
    response.writeHead(404).end();
  }
});
server.listen(0, '127.0.0.1', () => {
  const { port } = server.address() as AddressInfo;
  console.log(`The meeting is shown at http://127.0.0.1:${port}${root}`);
});
