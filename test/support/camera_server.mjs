// A PipeWire server of one's own, whose cameras show bars.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdirSync, writeFileSync } from 'node:fs';
import { homedir } from 'node:os';
import path from 'node:path';
import { createInterface } from 'node:readline';

import { temporaryDirectory } from './temporary_directory.mjs';

// The server starts these when clients are accepted.
const STARTED = `context.exec = [ { path = "wireplumber" } { path = "echo" args = "ready" } ]\n`;

export class CameraServer {
  #test;
  #directory;
  #monitor;
  #lines = [];

  static async start(test) {
    const server = new CameraServer();
    server.#test = test;
    server.#directory = temporaryDirectory(test);
    const directory = server.#directory;
    server.environment = {
      XDG_RUNTIME_DIR: directory,
      XDG_CONFIG_HOME: directory,
      HOME: directory,
      // GStreamer's list of plugins, which takes seconds to make.
      XDG_CACHE_HOME: process.env.XDG_CACHE_HOME ?? path.join(homedir(), '.cache'),
      DBUS_SESSION_BUS_ADDRESS: `unix:path=${directory}/bus`,
    };
    mkdirSync(path.join(directory, 'pipewire/pipewire.conf.d'), { recursive: true });
    writeFileSync(path.join(directory, 'pipewire/pipewire.conf.d/test.conf'), STARTED);
    // A child of the test's, and not of the server's, which would not end it.
    const bus = server.#spawn('dbus-daemon', [
      ...['--session', '--nofork', '--print-address'],
      `--address=${server.environment.DBUS_SESSION_BUS_ADDRESS}`,
    ]);
    await once(bus.stdout, 'data');
    const daemon = server.#spawn('pipewire', []);
    const ready = createInterface({ input: daemon.stdout });
    await new Promise((resolve, reject) => {
      daemon.on('exit', (code) => reject(new Error(`pipewire ended: ${code}`)));
      ready.on('line', (line) => line === 'ready' && resolve());
    });
    server.#monitor = createInterface({
      input: server.#spawn('stdbuf', ['-oL', 'pw-mon', '--no-colors']).stdout,
    });
    server.#monitor.on('line', (line) => server.#lines.push(line.trim()));
    return server;
  }

  #spawn(program, args) {
    const child = spawn(program, args, {
      env: { ...process.env, ...this.environment, LD_PRELOAD: '' },
      stdio: ['pipe', 'pipe', 'ignore'],
    });
    this.#test.after(() => this.#end(child));
    return child;
  }

  async #end(child) {
    if (child.exitCode !== null || child.signalCode !== null) return;
    child.kill();
    await once(child, 'exit');
  }

  // A camera that shows bars in any size and at any rate. Settles when clients can see it, with what
  // unplug() takes.
  async plug(name) {
    const camera = this.#spawn('pw-cli', []);
    camera.stdin.write(
      'create-node spa-node-factory { factory.name=videotestsrc ' +
        'library.name=videotestsrc/libspa-videotestsrc ' +
        `media.class=Video/Source node.name=${name} node.description=${name} }\n`,
    );
    const shown = `node.name = "${name}"`;
    while (!this.#lines.some((line) => line.includes(shown))) await once(this.#monitor, 'line');
    this.#lines.length = 0;
    return camera;
  }

  unplug(camera) {
    return this.#end(camera);
  }
}
