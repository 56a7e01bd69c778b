// A name and a password for the TURN server, which expire: what an application's backend gives to a
// participant.
//
//   TURN_SECRET=... node turn_credentials.mjs PARTICIPANT HOURS
//
// prints what turnServers of connectCall and Meeting.join takes. coturn checks the expiry when a
// connection is made; what is open goes on.

import { createHmac } from 'node:crypto';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

const SECONDS_PER_HOUR = 3600;

// The password is derived from the name, which has the time of its expiry: with the same secret
// (static-auth-secret) the server checks it without asking anybody.
export function turnCredentials(secret, participant, hours, now = Date.now()) {
  const username = `${Math.floor(now / 1000 + hours * SECONDS_PER_HOUR)}:${participant}`;
  return { username, password: createHmac('sha1', secret).update(username).digest('base64') };
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const [participant, hours] = process.argv.slice(2);
  if (!process.env.TURN_SECRET || !participant || !(Number(hours) > 0)) {
    console.error('usage: TURN_SECRET=... turn_credentials.mjs PARTICIPANT HOURS');
    process.exitCode = 2;
  } else {
    const server = {
      ...{ fqdn: 'turn.example.org', address: '', priority: 0, bandwidth: 0 },
      ...turnCredentials(process.env.TURN_SECRET, participant, Number(hours)),
    };
    const servers = [
      { ...server, protocol: 'udp', port: 3478 },
      { ...server, protocol: 'tcp', port: 3478 },
      { ...server, protocol: 'tls', port: 5349 },
    ];
    console.log(JSON.stringify(servers, undefined, 2));
  }
}
