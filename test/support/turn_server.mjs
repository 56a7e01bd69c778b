// A coturn relay of one's own on this machine's network address.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createInterface } from 'node:readline';

import { freePort, ownAddress } from '../../examples/sfu/janus_server.mjs';
import { temporaryDirectory } from './temporary_directory.mjs';

const USER = 'user';
// Of the characters that a uri has a use for.
const PASSWORD = 'p@ss:w/rd?&%';

// Settles when it listens: with `used`, which settles when so many connections have been relayed, and
// with `stop` and `goOn`, between which nothing is.
export async function runTurnServer(test, options) {
  const directory = temporaryDirectory(test);
  const child = spawn(
    'turnserver',
    [
      ...[...options, '--verbose', '--log-file=stdout'],
      ...['--userdb', `${directory}/users`, '--pidfile', `${directory}/pid`],
    ],
    { stdio: ['ignore', 'pipe', 'ignore'], env: { ...process.env, LD_PRELOAD: '' } },
  );
  test.after(async () => {
    child.kill('SIGCONT');
    child.kill();
    if (child.exitCode === null && child.signalCode === null) await once(child, 'exit');
  });
  const lines = [];
  const output = createInterface({ input: child.stdout });
  output.on('line', (line) => lines.push(line));
  const said = async (find) => {
    while (!find(lines)) await once(output, 'line');
  };
  await said(() => lines.some((line) => /T(CP|LS) listener opened/.test(line)));
  return {
    stop: () => child.kill('SIGSTOP'),
    goOn: () => child.kill('SIGCONT'),
    used: (count) =>
      said(() => lines.filter((line) => /ALLOCATE processed, success/.test(line)).length >= count),
  };
}

// The same with its { address, port, username, password }. With a `certificate`, { certificate, key },
// it listens with TLS only. It relays nothing to the address `deniedPeer`.
export async function startTurnServer(test, { certificate, deniedPeer } = {}) {
  const address = ownAddress();
  const port = await freePort(address);
  const server = await runTurnServer(test, [
    ...['-n', '-a', '--no-cli', '--no-dtls'],
    ...['-L', address, '-r', 'test', '-u', `${USER}:${PASSWORD}`],
    ...(certificate
      ? ['--no-udp', '--no-tcp', '--tls-listening-port', `${port}`]
      : ['--no-tls', '-p', `${port}`]),
    ...(certificate ? ['--cert', certificate.certificate, '--pkey', certificate.key] : []),
    ...(deniedPeer ? ['--denied-peer-ip', deniedPeer] : []),
  ]);
  return { ...server, address, port, username: USER, password: PASSWORD };
}
