// Stands between the members of a room and its Janus server, and takes all their media through itself:
// it records the packets of RTP, and loses or
// delays those that a test chooses.
//
// The signalling passes through it, too. In it the server's addresses for media and the members' are
// replaced by those of the relay. The headers of RTP are not encrypted.

import { createSocket } from 'node:dgram';
import { once } from 'node:events';

import { WebSocket, WebSocketServer } from 'ws';

import { ownAddress } from '../../examples/sfu/janus_server.mjs';

const PROTOCOL = 'janus-protocol';
// Which SRTP adds to a packet of RTP.
const TAG_BYTES = 10;
const FIXED_HEADER_BYTES = 12;
// foundation, component, transport, priority, address, port.
const CANDIDATE = /(candidate:\S+ \d+ )(\S+)( \d+ )(\S+) (\d+)( .*)/;

export const now = () => performance.timeOrigin + performance.now();

const isMedia = (datagram) => datagram.length >= FIXED_HEADER_BYTES && datagram[0] >> 6 === 2;
const isControl = (datagram) => isMedia(datagram) && datagram[1] >= 192 && datagram[1] <= 223;

// The packet of RTP in a datagram; nothing when it holds something else.
function parsePacket(datagram) {
  if (!isMedia(datagram) || isControl(datagram)) return undefined;
  const sources = datagram[0] & 0x0f;
  const hasExtension = (datagram[0] & 0x10) !== 0;
  let header = FIXED_HEADER_BYTES + 4 * sources;
  if (hasExtension) header += 4 + 4 * datagram.readUInt16BE(header + 2);
  return {
    ssrc: datagram.readUInt32BE(8),
    sequence: datagram.readUInt16BE(2),
    endsFrame: (datagram[1] & 0x80) !== 0,
    timestamp: datagram.readUInt32BE(4),
    bytes: datagram.length - TAG_BYTES,
    payloadBytes: datagram.length - TAG_BYTES - header,
  };
}

async function openSocket(address) {
  const socket = createSocket('udp4').bind(0, address);
  await once(socket, 'listening');
  return socket;
}

// The way of one of a member's connections: towards the server, "up", and towards the member, "down".
class Path {
  #relay;
  #sockets; // by the direction in which they send
  #targets = {}; // { port, address } by direction
  #isClosed = false;

  // The packets that arrived here, in order, by direction: what they are, when they arrived and
  // left, and whether the relay has lost them.
  packets = { up: [], down: [] };
  // How many packets of RTCP arrived here.
  controls = { up: 0, down: 0 };

  static async open(test, relay, address) {
    const path = new Path();
    path.#relay = relay;
    const [up, down] = await Promise.all([openSocket(address), openSocket(address)]);
    path.#sockets = { up, down };
    test.after(() => {
      path.#isClosed = true;
      up.close();
      down.close();
    });
    down.on('message', (datagram, { port, address: from }) => {
      path.#targets.down = { port, address: from };
      path.#pass('up', datagram);
    });
    up.on('message', (datagram) => path.#pass('down', datagram));
    return path;
  }

  #pass(direction, datagram) {
    const target = this.#targets[direction];
    if (!target || this.#relay.blocks(datagram)) return;
    if (isControl(datagram)) ++this.controls[direction];
    const packet = parsePacket(datagram);
    if (packet) {
      packet.at = now();
      packet.isLost = this.#relay.loses(direction, packet);
      this.packets[direction].push(packet);
      if (packet.isLost) return;
    }
    const send = () => {
      if (this.#isClosed) return;
      if (packet) packet.leftAt = now();
      this.#sockets[direction].send(datagram, target.port, target.address);
    };
    const own = packet ? this.#relay.delays(direction, packet) : 0;
    const milliseconds = this.#relay.distance + own;
    if (milliseconds > 0) setTimeout(send, milliseconds);
    else send();
  }

  // The address to which the other end sends what goes in this direction, in place of `replaced`.
  placeOf(direction, replaced) {
    this.#targets[direction] = replaced;
    const other = direction === 'up' ? 'down' : 'up';
    return this.#sockets[other].address().port;
  }
}

export class MediaRelay {
  #test;
  #address = ownAddress();
  #server;
  #authority;
  #paths = new Map(); // promises, by the handle of Janus
  #members = new Set(); // their sockets for the signalling

  // Whether a datagram, of whatever kind, does not pass.
  blocks = () => false;
  // Whether a packet that goes "up", to the server, or "down" is lost.
  loses = () => false;
  // For how many milliseconds it is delayed.
  delays = () => 0;
  // For how many milliseconds every datagram is delayed, besides.
  distance = 0;

  // Relays to `server` until the test ends.
  static async start(test, server) {
    const relay = new MediaRelay();
    relay.#test = test;
    relay.#server = server;
    const listener = new WebSocketServer({
      host: relay.#address,
      port: 0,
      handleProtocols: () => PROTOCOL,
    });
    await once(listener, 'listening');
    test.after(() => listener.close());
    relay.#authority = `${relay.#address}:${listener.address().port}`;
    listener.on('connection', (member) => relay.#connect(member));
    return relay;
  }

  // As that of the server.
  uri(room, parameters) {
    return this.#server.uri(room, parameters).replace(this.#server.authority, this.#authority);
  }

  // All packets so far that went "up" or "down", in order of each connection.
  async packets(direction) {
    const paths = await Promise.all(this.#paths.values());
    return paths.flatMap(({ packets }) => packets[direction]);
  }

  // How many packets of RTCP so far went "up" or "down" on the connection that carries this SSRC down.
  async controls(direction, ssrc) {
    const paths = await Promise.all(this.#paths.values());
    const carrier = paths.find(({ packets }) => packets.down.some((each) => each.ssrc === ssrc));
    return carrier.controls[direction];
  }

  // Ends the signalling of all members. The server does not notice.
  dropMembers() {
    for (const member of this.#members) {
      member.removeAllListeners('close');
      member.terminate();
    }
    this.#members.clear();
  }

  #connect(member) {
    this.#members.add(member);
    const server = new WebSocket(`ws://${this.#server.authority}/`, PROTOCOL);
    this.#test.after(() => server.terminate());
    const opened = once(server, 'open');
    const pass = (from, to, direction) => {
      let last = opened;
      from.on('message', (text) => {
        // In order, although paths are opened on the way.
        last = last.then(async () => {
          const message = JSON.parse(text);
          const isKept = await this.#replaceAddresses(message, direction);
          if (isKept) to.send(JSON.stringify(message));
        });
      });
      from.on('close', () => to.close());
    };
    pass(member, server, 'down');
    pass(server, member, 'up');
  }

  // `direction` is the one of the media that go to the addresses in the message. Resolves to false for
  // a message of nothing but an address that the relay does not serve.
  async #replaceAddresses(message, direction) {
    const handle = message.handle_id ?? message.sender;
    if (handle === undefined) return true;
    if (!this.#paths.has(handle))
      this.#paths.set(handle, Path.open(this.#test, this, this.#address));
    const path = await this.#paths.get(handle);
    const replace = (candidate) => {
      const parts = CANDIDATE.exec(candidate);
      if (!parts) return '';
      const [, start, transport, priority, address, port, rest] = parts;
      if (transport.toLowerCase() !== 'udp' || address !== this.#address) return '';
      const place = path.placeOf(direction, { address, port: Number(port) });
      return `${start}${transport}${priority}${this.#address} ${place}${rest}`;
    };
    if (message.candidate?.candidate) {
      message.candidate.candidate = replace(message.candidate.candidate);
      return message.candidate.candidate !== '';
    }
    if (message.jsep) {
      const lines = message.jsep.sdp.split('\r\n').flatMap((line) => {
        if (!line.startsWith('a=candidate:')) return [line];
        const candidate = replace(line.slice('a='.length));
        return candidate ? [`a=${candidate}`] : [];
      });
      message.jsep.sdp = lines.join('\r\n');
    }
    return true;
  }
}
