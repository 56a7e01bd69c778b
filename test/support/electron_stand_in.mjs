// Stands in for the module "electron" of a main process: as much of it as the project to start from
// uses. Its window asks for the page, as a browser would, and for the meeting's pictures, says which
// streams they are of by their test cards, and is closed. It shows nothing about Electron itself.

import assert from 'node:assert/strict';
import { EventEmitter } from 'node:events';
import { setImmediate } from 'node:timers/promises';

import { picturesOf } from './quickstart.mjs';

const KEYS = ['local-0', 'remote-0', 'remote-1', 'remote-2', 'remote-3'];

let schemes = [];
let answer;

export const protocol = {
  registerSchemesAsPrivileged: (given) => (schemes = given.map(({ scheme }) => scheme)),
  handle(scheme, handler) {
    assert.ok(schemes.includes(scheme));
    answer = handler;
  },
};

export const app = Object.assign(new EventEmitter(), {
  isPackaged: false,
  getPath: () => '/tmp',
  whenReady: () => setImmediate(),
  quit: () => app.emit('will-quit'),
  exit: (code) => process.exit(code),
});

export class BrowserWindow {
  async loadURL(address) {
    const get = async (url) => {
      await setImmediate(); // the meeting is in this process
      return answer(new Request(url));
    };
    for (const [name, type] of [
      ['', 'text/html'],
      ['page.mjs', 'text/javascript'],
      ['renderer.mjs', 'text/javascript'],
    ]) {
      const { status, headers } = await get(new URL(name, address));
      assert.deepEqual([name, status, headers.get('content-type')], [name, 200, type]);
    }
    assert.equal((await get(new URL('main.mjs', address))).status, 404);
    const shown = await picturesOf(address, KEYS, get);
    const streams = shown.map(({ card }) => `${card.type}-${card.streamIndex}`);
    console.log(`shown: ${streams.join(' ')}`);
    app.emit('window-all-closed');
  }
}
