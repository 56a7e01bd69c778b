// The widget: a second process that reads streams from shared memory and shows each in its own
// window. It serves the window's page itself. The meeting process sends it the names of the memory,
// and receives messages about the open windows.

import { Widget } from 'tessel-wrapper';
import { FrameLane } from './frame_lane.mjs';
import { pageFiles } from './page_files.mjs';
import { PageServer } from './page_server.mjs';
import { streamNamed } from './stream_names.mjs';

const NO_PICTURE = { noUpdate: true };

const sessions = new Map(); // the socket of the window that shows a stream, by its name
const blank = new Set(); // names of streams whose picture in the memory is not to be shown any more

// No messages are sent to a meeting process that has ended. This process then ends, too.
const tell = (message, then = () => {}) => process.send(message, then);

// A window opens its socket, says which stream it shows and, whenever that changes, how high it is.
function serve(socket, widget) {
  const stopping = new AbortController();
  let name;
  let lane;
  let wasBlank = false;

  const send = (frame) => {
    const isBlank = blank.has(name);
    if (!lane.isFree || (isBlank && wasBlank)) return;
    wasBlank = isBlank;
    lane.send(isBlank ? NO_PICTURE : frame);
  };
  const show = (wanted) => {
    name = wanted;
    lane = new FrameLane(socket, streamNamed(name));
    sessions.get(name)?.close(1000, 'This picture is in another window.');
    sessions.set(name, socket);
    widget.watch(streamNamed(name), send, { signal: stopping.signal }).catch((error) => {
      if (!stopping.signal.aborted) throw error;
    });
  };

  socket.on('error', () => socket.terminate());
  const obey = ({ type, stream, height }) => {
    if (type === 'drawn') {
      lane?.drawn();
    } else if (type === 'show' && streamNamed(stream) && (name ?? stream) === stream) {
      if (!lane) show(stream);
      tell({ type: 'shown', stream, height: Number(height) || 0 });
    } else {
      throw new TypeError(`unknown request: ${type} ${stream}`);
    }
  };

  socket.on('message', (data) => {
    try {
      obey(JSON.parse(data));
    } catch {
      socket.terminate(); // no page of ours says this
    }
  });
  socket.on('close', () => {
    stopping.abort();
    if (sessions.get(name) !== socket) return;
    sessions.delete(name);
    tell({ type: 'closed', stream: name });
  });
}

async function start(order) {
  try {
    await open(order);
  } catch ({ message }) {
    // The memory is also missing when the meeting has ended in the meantime.
    tell({ type: 'failed', message }, () => process.exit(1));
  }
}

async function open({ sharedDataInfo, port, token }) {
  const widget = new Widget(sharedDataInfo);
  const server = new PageServer({
    ...{ port, token },
    files: pageFiles('window.html'),
    onConnection: (socket) => serve(socket, widget),
  });
  await server.listen();
  tell({ type: 'listening', port: server.port, token: server.token, address: server.address });
}

const orders = {
  start,
  blank: ({ stream, isBlank }) => (isBlank ? blank.add(stream) : blank.delete(stream)),
  hide({ stream }) {
    blank.delete(stream);
    sessions.get(stream)?.close(1000, 'This picture is back in the meeting.');
  },
};
process.on('message', ({ type, ...message }) => orders[type](message));
// The meeting process ends this one, even when both are interrupted at a terminal or lose it.
for (const signal of ['SIGINT', 'SIGHUP']) process.on(signal, () => {});
process.on('disconnect', () => process.exit());
if (!process.connected) process.exit();
