// A second process that reads one stream of a meeting through shared memory. WidgetChild in
// support/widget_child.mjs starts it and tells it what to read.

import { once } from 'node:events';

import { TesselWrapperProxy } from 'tessel-wrapper';
import { FrameCounter } from './support/frame_counter.mjs';
import { SharedStream } from './support/shared_stream.mjs';

// Twice the highest frame rate, so that no frame is overwritten between two polls.
const POLL_INTERVAL_MS = 1000 / 60;

// Even when the meeting's process ends early.
process.on('disconnect', () => process.exit());
const [{ names, stream }] = await once(process, 'message');
const counter = new FrameCounter();
const shared = new SharedStream(new TesselWrapperProxy(names), stream, counter);
const timer = setInterval(() => shared.poll(), POLL_INTERVAL_MS);
process.send('reading');

await once(process, 'message'); // it is enough
clearInterval(timer);
const name = `${stream.type}-${stream.streamIndex}, in the widget`;
process.send({ stream: name, size: shared.size, ...counter.columns });
process.disconnect();
