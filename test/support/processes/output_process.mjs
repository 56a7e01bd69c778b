// A process with the trial's standard output, or with a closed one (argument "absent"), or with one
// that blocks its writers ("blocking"). It writes lines on several threads whenever it reads a
// number on descriptor 3, and answers there when it has.

import { closeSync, readFileSync } from 'node:fs';
import { Socket } from 'node:net';
import { createInterface } from 'node:readline';

import { construct, engine } from '../scripted/wrapper_kit.mjs';
import { remote } from '../streams.mjs';

const CHANNEL = 3;
const STANDARD_OUTPUT = 1;
const SHARED = remote(3);

const [kind] = process.argv.slice(2);
if (kind === 'absent') {
  closeSync(STANDARD_OUTPUT);
} else if (kind !== 'blocking') {
  // From here on the standard output does not block its writers, where it is a pipe.
  void process.stdout.writable;
  process.stdout.on('error', () => {});
}

// Lines are no part of what this process shares.
function requireIntactSegments() {
  const mapped = readFileSync('/proc/self/maps', 'latin1').match(/\/dev\/shm\/SHM\S+/g);
  const segments = new Set(mapped);
  if (segments.size !== 2) throw new Error(`segments: ${[...segments]}`);
  for (const segment of segments) {
    const bytes = readFileSync(segment);
    if (bytes.includes('disableSharedMemory')) throw new Error(`a line in ${segment}`);
  }
}

const wrapper = construct();
engine.setStream(SHARED);
wrapper.enterWidgetMode(SHARED);
const channel = new Socket({ fd: CHANNEL });
const wanted = createInterface({ input: channel });
for await (const line of wanted) {
  const [text, times] = line.split(' ');
  for (let i = 0; i < Number(times); ++i) {
    wrapper.exitWidgetMode({ type: 'local', streamIndex: 7 });
    if (i % 100 === 0) engine.fire('NotifyInitCompleted');
  }
  wrapper.setAudioDebug(false);
  channel.write(`${text}\n`);
  if (text === 'end') break;
}
requireIntactSegments();
wrapper.destroy();
channel.end();
wanted.close();
channel.unref();
