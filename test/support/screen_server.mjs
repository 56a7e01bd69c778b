// An X server of one's own, without a screen that anybody sees, and what is drawn on it.

import { execFile, spawn } from 'node:child_process';
import { once } from 'node:events';
import { createInterface } from 'node:readline';
import { setTimeout as delay } from 'node:timers/promises';
import { promisify } from 'node:util';

const POLL_INTERVAL_MS = 20;
const execute = promisify(execFile);

// The luminance and chroma of a colour as "#rrggbb", as video has them (BT.601).
export function yuvOf(colour) {
  const [red, green, blue] = [1, 3, 5].map((place) => parseInt(colour.slice(place, place + 2), 16));
  return [
    16 + (65.5 * red + 128.6 * green + 25 * blue) / 255,
    128 + (-37.8 * red - 74.2 * green + 112 * blue) / 255,
    128 + (112 * red - 93.8 * green - 18.2 * blue) / 255,
  ].map(Math.round);
}

export class ScreenServer {
  #daemon;
  #display;
  #windows = 0;

  // With monitors of these sizes beside each other, as [width, height].
  static async start(test, monitors) {
    const server = new ScreenServer();
    test.after(() => server.stop());
    await server.#start(monitors);
    return server;
  }

  async #start(monitors) {
    const width = monitors.reduce((sum, [each]) => sum + each, 0);
    const height = Math.max(...monitors.map(([, each]) => each));
    // The server chooses the display's number and writes it. It keeps monitors when its last client goes.
    this.#daemon = spawn(
      'Xvfb',
      [
        ...['-displayfd', '3', '-screen', '0', `${width}x${height}x24`],
        ...['-nolisten', 'tcp', '-noreset'],
      ],
      { env: { ...process.env, LD_PRELOAD: '' }, stdio: ['ignore', 'ignore', 'ignore', 'pipe'] },
    );
    const [number] = await once(createInterface({ input: this.#daemon.stdio[3] }), 'line');
    this.#display = `:${number}`;
    this.environment = { DISPLAY: this.#display, WAYLAND_DISPLAY: undefined };
    if (monitors.length > 1) await this.setMonitors(monitors);
  }

  async setMonitors(monitors) {
    let x = 0;
    for (const [index, [width, height]] of monitors.entries()) {
      const place = `${width}/100x${height}/100+${x}+0`;
      await this.#run(
        'xrandr',
        '--setmonitor',
        `M${index}`,
        place,
        index === 0 ? 'screen' : 'none',
      );
      x += width;
    }
  }

  async #run(program, ...args) {
    const { stdout } = await execute(program, args, { env: this.#environment });
    return stdout;
  }

  get #environment() {
    return { ...process.env, LD_PRELOAD: '', DISPLAY: this.#display };
  }

  // Paints what no window covers.
  async paint(colour) {
    await this.#run('xsetroot', '-solid', colour);
  }

  // Resolves with a window that is shown: its identifier, and functions that close and hide it.
  async openWindow(colour, { x, y, width, height }) {
    const name = `window-${this.#windows++}`;
    const child = spawn(
      'xlogo',
      [
        ...['-name', name, '-title', name, '-geometry', `${width}x${height}+${x}+${y}`],
        ...['-bw', '0', '-bg', colour, '-fg', colour],
      ],
      { env: this.#environment, stdio: 'ignore' },
    );
    const closed = once(child, 'exit');
    for (;;) {
      // It fails while there is no such window.
      const told = await this.#run('xwininfo', '-name', name).catch(() => '');
      const id = /Window id: (0x[0-9a-f]+)/.exec(told)?.[1];
      if (id && told.includes('IsViewable')) {
        return {
          id: Number(id),
          pid: child.pid,
          close: async () => {
            child.kill();
            await closed;
          },
        };
      }
      await delay(POLL_INTERVAL_MS);
    }
  }

  // Lists these windows as a window manager does, the one on top last.
  async list(windows) {
    for (const { id, pid } of windows) {
      const set = ['-f', '_NET_WM_PID', '32c', '-set', '_NET_WM_PID', `${pid}`];
      await this.#run('xprop', '-id', `${id}`, ...set);
    }
    const ids = windows.map(({ id }) => id).join(', ');
    const format = ['-f', '_NET_CLIENT_LIST_STACKING', '32x'];
    await this.#run('xprop', '-root', ...format, '-set', '_NET_CLIENT_LIST_STACKING', ids);
  }

  // The server answers nobody any more.
  freeze() {
    this.#daemon.kill('SIGSTOP');
  }

  async stop() {
    if (this.#daemon.exitCode !== null || this.#daemon.signalCode !== null) return;
    this.#daemon.kill('SIGKILL');
    await once(this.#daemon, 'exit');
  }
}
