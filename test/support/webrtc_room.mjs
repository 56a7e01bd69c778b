// Rooms of a real Janus for tests, and processes that join them.

import { JanusServer } from '../../examples/sfu/janus_server.mjs';
import { startProcess } from './commanded_process.mjs';
import { temporaryDirectory } from './temporary_directory.mjs';

// A server that ends with the test.
export async function startServer(test, options) {
  const server = await JanusServer.start(options);
  test.after(() => server.stop());
  return server;
}

// A process with an engine, which captures at this size once it is in a call. Its sound server is
// the one that the environment names, if any.
export async function openMember(test, { capture = {}, environment = {} } = {}) {
  const member = startProcess(test, './support/processes/room_member.mjs', {
    environment: { PULSE_SERVER: 'unix:/nowhere', ...environment },
  });
  await member.does('open', temporaryDirectory(test), capture);
  return member;
}
