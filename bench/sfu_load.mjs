// What an SFU costs for each packet and each connection: members in one room of the configured SFU of
// examples/operating/, with their figures from its admin API and from /proc. Prints one line for each
// number of members.
//
//   node bench/sfu_load.mjs [SECONDS] [MEMBERS...]

import { execFileSync } from 'node:child_process';
import { readFileSync, readdirSync } from 'node:fs';
import { setTimeout as delay } from 'node:timers/promises';

import { ask } from '../examples/operating/admin_api.mjs';
import { sfuToken } from '../examples/operating/sfu_token.mjs';
import { SECRETS, runExample, startConfiguredSfu } from '../test/support/operating.mjs';
import { openMember } from '../test/support/webrtc_room.mjs';

const SETTLING_MS = 3000;
const CAPTURE = { width: 640, height: 360, maxFPS: 30 };
const [seconds = 20, ...counts] = process.argv.slice(2).map(Number);
const ticksPerSecond = Number(execFileSync('getconf', ['CLK_TCK']));
process.env.JANUS_ADMIN_SECRET = SECRETS.admin;

// Runs `part`, and then what it has left to be done.
async function withCleanUp(part) {
  const leftovers = [];
  try {
    return await part({ after: (task) => leftovers.push(task) });
  } finally {
    for (const task of leftovers.reverse()) await task();
  }
}

// Seconds of the processor, memory and threads of a process.
function useOf(pid) {
  const fields = readFileSync(`/proc/${pid}/stat`, 'latin1').split(') ')[1].split(' ');
  const resident = /VmRSS:\s+(\d+)/.exec(readFileSync(`/proc/${pid}/status`, 'latin1'))[1];
  const threads = readdirSync(`/proc/${pid}/task`).length;
  return {
    processor: (Number(fields[11]) + Number(fields[12])) / ticksPerSecond,
    kilobytes: Number(resident),
    threads,
  };
}

async function countsOf({ admin, pid }) {
  const total = { connections: 0, packets: 0, bytes: 0 };
  const { sessions } = await ask(admin, 'list_sessions');
  for (const session_id of sessions) {
    const { handles } = await ask(admin, 'list_handles', { session_id });
    for (const handle_id of handles) {
      const { info } = await ask(admin, 'handle_info', { session_id, handle_id });
      const media = Object.values(info.webrtc?.media ?? {});
      if (media.length > 0) ++total.connections;
      for (const { stats } of media) {
        total.packets += stats.in.packets + stats.out.packets;
        total.bytes += stats.in.bytes + stats.out.bytes;
      }
    }
  }
  return { ...total, ...useOf(pid), at: performance.now() };
}

for (const count of counts.length > 0 ? counts : [2, 3, 4]) {
  await withCleanUp(async (test) => {
    const sfu = await startConfiguredSfu(test, '127.0.0.1');
    await runExample('rooms.mjs', ['create', 'r', sfu.admin]);
    const { kilobytes: idle } = useOf(sfu.pid);
    for (let member = 0; member < count; ++member) {
      const token = sfuToken(SECRETS.token, 1);
      const uri = sfu.uri('r', { camera: `card:${member}`, microphone: 'tone:440', token });
      const joined = await (await openMember(test, { capture: CAPTURE })).does('join', uri);
      if (!joined.connected) throw new Error(joined.reason);
    }
    // Connections are made and rates grow.
    await delay(SETTLING_MS);
    const before = await countsOf(sfu);
    await delay(seconds * 1000);
    const after = await countsOf(sfu);
    const time = (after.at - before.at) / 1000;
    const packets = after.packets - before.packets;
    const processor = after.processor - before.processor;
    console.log(
      [
        `${count} members`,
        `${after.connections} connections`,
        `${Math.round(packets / time)} packets/s`,
        `${(((after.bytes - before.bytes) * 8) / time / 1e6).toFixed(2)} Mbit/s`,
        `${((processor / time) * 100).toFixed(1)} % of a processor`,
        `${((processor / packets) * 1e6).toFixed(1)} us/packet`,
        `${((after.kilobytes - idle) / after.connections / 1024).toFixed(2)} MiB/connection`,
        `${after.threads} threads`,
      ].join(', '),
    );
  });
}
