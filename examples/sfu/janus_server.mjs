// A private Janus server with one or more rooms: Debian's package with its own configuration in a
// temporary directory, independent of the system's. It runs until it is closed.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { networkInterfaces, tmpdir } from 'node:os';
import path from 'node:path';
import { createInterface } from 'node:readline';

const LIBRARIES = '/usr/lib/x86_64-linux-gnu/janus';
// Only the plugin for rooms and the WebSocket transport are loaded.
const OTHER_PLUGINS = [
  ...['audiobridge', 'duktape', 'echotest', 'lua', 'nosip', 'recordplay', 'sip', 'streaming'],
  ...['textroom', 'videocall', 'voicemail'],
];
const OTHER_TRANSPORTS = ['http', 'mqtt', 'nanomsg', 'pfunix', 'rabbitmq'];
// Printed when the server listens.
const READY = 'WebSockets thread started';

// The first address of this machine that others can reach too: media do not go over loopback.
export function ownAddress() {
  const address = Object.values(networkInterfaces())
    .flat()
    .find(({ family, internal }) => family === 'IPv4' && !internal)?.address;
  if (!address) throw new Error('this machine has no network address besides loopback');
  return address;
}

export async function freePort(address) {
  const server = createServer().listen(0, address);
  await once(server, 'listening');
  const { port } = server.address();
  server.close();
  await once(server, 'close');
  return port;
}

const objects = (kind, names) => names.map((name) => `libjanus_${name}.so`).join(',');
const value = (setting) => (typeof setting === 'string' ? JSON.stringify(setting) : setting);
const settings = (group) =>
  Object.entries(group)
    .map(([name, setting]) => `  ${name} = ${value(setting)}`)
    .join('\n');
const groups = (all) =>
  Object.entries(all)
    .map(([name, group]) => `${name}: {\n${settings(group)}\n}\n`)
    .join('\n');

function writeConfiguration(directory, options) {
  const { address, port, securePort, rooms, hasNumbers, certificate } = options;
  const { administration, reclaimSeconds, adminKey } = options;
  const write = (name, all) => writeFileSync(path.join(directory, name), groups(all));
  write('janus.jcfg', {
    general: {
      configs_folder: directory,
      plugins_folder: `${LIBRARIES}/plugins`,
      transports_folder: `${LIBRARIES}/transports`,
      admin_secret: administration?.secret ?? crypto.randomUUID(),
      reclaim_session_timeout: reclaimSeconds,
      debug_level: 4,
      debug_colors: false,
    },
    nat: { full_trickle: true, ice_enforce_list: address },
    plugins: {
      disable: objects('plugin', rooms ? OTHER_PLUGINS : [...OTHER_PLUGINS, 'videoroom']),
    },
    transports: { disable: objects('transport', OTHER_TRANSPORTS) },
  });
  write('janus.transport.websockets.jcfg', {
    general: {
      json: 'compact',
      ...{ ws: true, ws_ip: address, ws_port: port },
      ...(certificate && { wss: true, wss_ip: address, wss_port: securePort }),
    },
    ...(administration && {
      admin: { admin_ws: true, admin_ws_ip: address, admin_ws_port: administration.port },
    }),
    ...(certificate && { certificates: certificate }),
  });
  write('janus.plugin.videoroom.jcfg', {
    general: { string_ids: !hasNumbers, ...(adminKey && { admin_key: adminKey }) },
    ...Object.fromEntries(
      Object.entries(rooms ?? {}).map(([name, room]) => [
        `room-${name}`,
        {
          publishers: 20,
          bitrate: 2_000_000,
          fir_freq: 10,
          videocodec: 'vp8,h264',
          notify_joining: true,
          ...room,
        },
      ]),
    ),
  });
}

export class JanusServer {
  #child;
  #directory;

  // Resolves when the server listens. `rooms` has the settings of each room by its name, or by its
  // number if the server `hasNumbers`: those are the default of the plugin for rooms, which is left
  // out if `rooms` is null. With a `certificate`, { cert_pem, cert_key }, it listens with TLS, too; with an `administration`,
  // { port, secret }, for its administrator. A participant whose connection is lost stays in a room
  // for `reclaimSeconds`. With an `adminKey` nobody makes rooms who does not know it. A `configuration`, a directory that the server
  // then owns, takes the place of all others but the address and the port.
  static async start({
    address = ownAddress(),
    port,
    rooms = {},
    hasNumbers = false,
    certificate,
    administration,
    reclaimSeconds = 0,
    adminKey,
    configuration,
  } = {}) {
    const server = new JanusServer();
    const ports = {
      port: port ?? (await freePort(address)),
      securePort: certificate && (await freePort(address)),
    };
    const options = { rooms, hasNumbers, certificate, administration, reclaimSeconds, adminKey };
    await server.#start({ address, ...ports, ...options, configuration });
    return server;
  }

  async #start(options) {
    this.#directory = options.configuration ?? mkdtempSync(path.join(tmpdir(), 'tessel-janus-'));
    if (!options.configuration) writeConfiguration(this.#directory, options);
    this.authority = `${options.address}:${options.port}`;
    this.secureAuthority = `${options.address}:${options.securePort}`;
    const configuration = path.join(this.#directory, 'janus.jcfg');
    this.#child = spawn('janus', ['-F', this.#directory, '-C', configuration], {
      env: { ...process.env, LD_PRELOAD: '' },
      stdio: ['ignore', 'pipe', 'inherit'],
    });
    this.lines = [];
    const started = new Promise((resolve, reject) => {
      this.#child.on('error', reject);
      this.#child.on('exit', (code, signal) =>
        reject(new Error(`janus ended (${code ?? signal}):\n${this.lines.slice(-9).join('\n')}`)),
      );
      createInterface({ input: this.#child.stdout }).on('line', (line) => {
        this.lines.push(line);
        if (line.startsWith(READY)) resolve();
      });
    });
    await started;
  }

  get pid() {
    return this.#child.pid;
  }

  // The address of one of the rooms as the engine takes it.
  uri(room, parameters = {}) {
    // A space is %20 in our uris; a plus is itself.
    const query = `${new URLSearchParams({ room, ...parameters })}`.replaceAll('+', '%20');
    return `janus+ws://${this.authority}/?${query}`;
  }

  secureUri(room, parameters) {
    return this.uri(room, parameters).replace(
      `janus+ws://${this.authority}`,
      `janus+wss://${this.secureAuthority}`,
    );
  }

  // Janus 1.1 logs in its handlers of other signals, and waits for ever when such a signal comes while
  // it is logging.
  async stop() {
    if (this.#child.exitCode === null && this.#child.signalCode === null) {
      this.#child.removeAllListeners('exit');
      this.#child.kill('SIGKILL');
      await once(this.#child, 'exit');
    }
    rmSync(this.#directory, { recursive: true, force: true });
  }
}
