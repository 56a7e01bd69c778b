// A token for the SFUs, which expires: what an application's backend puts into a participant's uri, as
// `token`.
//
//   JANUS_TOKEN_SECRET=... node sfu_token.mjs HOURS
//
// The server checks it with each request, also during the call: it has to be valid for the longest
// meeting.

import { createHmac } from 'node:crypto';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

const SECONDS_PER_HOUR = 3600;

// With the same secret (token_auth_secret) the server checks it without asking anybody. It allows
// the plugin for rooms, and all rooms: pins restrict these.
export function sfuToken(secret, hours, now = Date.now()) {
  const expiry = Math.floor(now / 1000 + hours * SECONDS_PER_HOUR);
  const content = `${expiry},janus,janus.plugin.videoroom`;
  return `${content}:${createHmac('sha1', secret).update(content).digest('base64')}`;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const [hours] = process.argv.slice(2);
  if (!process.env.JANUS_TOKEN_SECRET || !(Number(hours) > 0)) {
    console.error('usage: JANUS_TOKEN_SECRET=... sfu_token.mjs HOURS');
    process.exitCode = 2;
  } else {
    console.log(encodeURIComponent(sfuToken(process.env.JANUS_TOKEN_SECRET, Number(hours))));
  }
}
