// What examples/operating/ configures, run on this machine: the files as they are there, but for
// addresses, ports, secrets and paths.

import { execFile, spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, readFileSync, readdirSync, writeFileSync } from 'node:fs';
import { connect } from 'node:net';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { WebSocket } from 'ws';

import { freePort, ownAddress } from '../../examples/sfu/janus_server.mjs';
import { makeCertificate } from './certificates.mjs';
import { temporaryDirectory } from './temporary_directory.mjs';
import { runTurnServer } from './turn_server.mjs';
import { startServer } from './webrtc_room.mjs';

const EXAMPLES = fileURLToPath(new URL('../../examples/operating/', import.meta.url));

const POLL_INTERVAL_MS = 20;

export const SECRETS = {
  admin: 'admin secret',
  key: 'admin key',
  token: 'token secret',
  turn: 'TURN secret',
};

// The text of an example's file, with each of the `changes`, [what, into], made in one place or more.
export function adapted(name, changes) {
  return changes.reduce(
    (text, [what, into]) => {
      if (!text.includes(what)) throw new Error(`${name} has no ${what}`);
      return text.replaceAll(what, into);
    },
    readFileSync(path.join(EXAMPLES, name), 'utf8'),
  );
}

// The changes in each file for a server whose signalling is on `address`.
function changesOf({ address, port, adminPort, directory }) {
  return {
    'janus.jcfg': [
      ['configs_folder = "/etc/janus"', `configs_folder = "${directory}"`],
      ['"10.0.0.11"', `"${ownAddress()}"`],
      ['"203.0.113.11"', `"${ownAddress()}"`],
      ['CHANGE-TOKEN-SECRET', SECRETS.token],
      ['CHANGE-ADMIN-SECRET', SECRETS.admin],
    ],
    'janus.transport.websockets.jcfg': [
      ['"10.0.0.11"', `"${address}"`],
      ['ws_port = 8188', `ws_port = ${port}`],
      ['"10.0.0."', '"127."'],
    ],
    'janus.transport.http.jcfg': [
      ['"10.0.0.11"', `"${address}"`],
      ['admin_port = 7088', `admin_port = ${adminPort}`],
      ['"10.0.0."', '"127."'],
    ],
    'janus.plugin.videoroom.jcfg': [['CHANGE-ADMIN-KEY', SECRETS.key]],
  };
}

// An SFU with the configuration of the examples, until the test ends or it is stopped; `admin` is the
// uri of its admin API.
export async function startConfiguredSfu(test, address) {
  const directory = mkdtempSync(path.join(tmpdir(), 'tessel-janus-'));
  const [port, adminPort] = [await freePort(address), await freePort(address)];
  const changes = changesOf({ address, port, adminPort, directory });
  for (const name of readdirSync(path.join(EXAMPLES, 'janus'))) {
    writeFileSync(path.join(directory, name), adapted(`janus/${name}`, changes[name] ?? []));
  }
  const server = await startServer(test, { address, port, configuration: directory });
  return Object.assign(server, { address, port, admin: `http://${address}:${adminPort}/admin` });
}

// A TURN server with the configuration of the examples, until the test ends. It relays to `peer` only.
// Resolves to its address, its ports and what runTurnServer() has.
export async function startConfiguredTurnServer(test, { certificate, key }, peer) {
  const address = ownAddress();
  const [port, tlsPort] = [await freePort(address), await freePort(address)];
  const file = path.join(temporaryDirectory(test), 'turnserver.conf');
  writeFileSync(
    file,
    adapted('turnserver.conf', [
      ['203.0.113.20/10.0.0.20', address],
      ['10.0.0.20', address],
      ['listening-port=3478', `listening-port=${port}`],
      ['tls-listening-port=5349', `tls-listening-port=${tlsPort}`],
      ['/etc/turnserver/certificate.pem', certificate],
      ['/etc/turnserver/key.pem', key],
      ['CHANGE-TURN-SECRET', SECRETS.turn],
      ['203.0.113.11', peer],
    ]),
  );
  return { ...(await runTurnServer(test, ['-c', file])), address, port, tlsPort };
}

// HAProxy with the configuration of the examples, in front of two SFUs, until the test ends.
class Balancer {
  #socket;
  #certificate;

  // Resolves when it listens.
  static async start(test, sfus) {
    const balancer = new Balancer();
    const address = ownAddress();
    const directory = temporaryDirectory(test);
    const [socket, file] = [
      path.join(directory, 'admin.sock'),
      path.join(directory, 'haproxy.cfg'),
    ];
    const pem = path.join(directory, 'server.pem');
    const certificate = makeCertificate(test, `IP:${address}`);
    writeFileSync(
      pem,
      [certificate.certificate, certificate.key].map((each) => readFileSync(each, 'utf8')).join(''),
    );
    const [port, peerPort] = [await freePort(address), await freePort('127.0.0.1')];
    const metricsPort = await freePort('127.0.0.1');
    writeFileSync(
      file,
      adapted('haproxy.cfg', [
        ['  user haproxy\n  group haproxy\n', ''],
        ['maxconn 20000', 'maxconn 200'],
        ['/dev/log', 'stdout format raw'],
        ['/run/haproxy/admin.sock', socket],
        ['127.0.0.1:10000', `127.0.0.1:${peerPort}`],
        ['bind :443', `bind ${address}:${port}`],
        ['/etc/haproxy/sfu.example.org.pem', pem],
        ['10.0.0.11:8188', sfus[0].authority],
        ['10.0.0.12:8188', sfus[1].authority],
        ['10.0.0.10:8404', `127.0.0.1:${metricsPort}`],
      ]),
    );
    const child = spawn('/usr/sbin/haproxy', ['-db', '-f', file], {
      stdio: ['ignore', 'ignore', 'inherit'],
      env: { ...process.env, LD_PRELOAD: '' },
    });
    const ended = once(child, 'exit');
    test.after(async () => {
      child.kill('SIGKILL');
      await ended;
    });
    balancer.#socket = socket;
    balancer.#certificate = certificate;
    balancer.authority = `${address}:${port}`;
    balancer.metrics = `http://127.0.0.1:${metricsPort}/metrics`;
    while (!(await balancer.#answers())) {
      if (child.exitCode !== null) throw new Error(`haproxy ended: ${child.exitCode}`);
      await delay(POLL_INTERVAL_MS);
    }
    return balancer;
  }

  #answers() {
    return this.does('show version').then(
      () => true,
      () => false,
    );
  }

  // The answer to a command of its runtime API.
  async does(command) {
    const socket = connect(this.#socket);
    socket.end(`${command}\n`);
    return (await socket.toArray()).join('').trim();
  }

  // The address of a room as the engine takes it.
  uri(room, parameters) {
    const query = new URLSearchParams({
      ...{ room, ...parameters, authority: this.#certificate.authority },
    });
    return `janus+wss://${this.authority}/?${`${query}`.replaceAll('+', '%20')}`;
  }

  // Opens a WebSocket as a client of this room does. Rejects when it is refused.
  async reach(query) {
    const socket = new WebSocket(`wss://${this.authority}/${query}`, 'janus-protocol', {
      ca: readFileSync(this.#certificate.authority),
    });
    await once(socket, 'open');
    socket.terminate();
  }

  // The name of the server to which a room was given last; undefined before.
  async serverOf(room) {
    const table = await this.does('show table sfus');
    const key = ` key=${room.replaceAll(' ', '\\ ')} `;
    const line = table.split('\n').find((each) => each.includes(key));
    return line && /server_key=(\S+)/.exec(line)[1];
  }
}

// The balancer in front of two SFUs, with `rooms` at both.
export async function startServers(test, rooms) {
  const sfus = [
    await startConfiguredSfu(test, '127.0.0.1'),
    await startConfiguredSfu(test, '127.0.0.1'),
  ];
  const admins = sfus.map(({ admin }) => admin);
  for (const room of rooms) await runExample('rooms.mjs', ['create', room, ...admins]);
  const balancer = await Balancer.start(test, sfus);
  return { balancer, sfus: { sfu1: sfus[0], sfu2: sfus[1] } };
}

// Runs one of the examples' programs; resolves to its { stdout, stderr }, and rejects when it fails.
export const runExample = (name, args, environment = {}) =>
  promisify(execFile)(process.execPath, [path.join(EXAMPLES, name), ...args], {
    env: {
      ...process.env,
      JANUS_ADMIN_SECRET: SECRETS.admin,
      JANUS_ADMIN_KEY: SECRETS.key,
      TURN_SECRET: SECRETS.turn,
      JANUS_TOKEN_SECRET: SECRETS.token,
      ...environment,
    },
  });
