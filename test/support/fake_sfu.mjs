// A server that speaks the protocol of a Janus server with a room, and of which a test decides what it
// says. No media pass.

import { EventEmitter, once } from 'node:events';
import { readFileSync } from 'node:fs';
import { createServer } from 'node:https';

import { WebSocketServer } from 'ws';

import { ownAddress } from '../../examples/sfu/janus_server.mjs';

const ROOM = 'meeting';
const PRIVATE_ID = 4711;

const lines = (...all) => all.map((line) => `${line}\r\n`).join('');
const connection = (direction, mid, setup) => [
  ...['c=IN IP4 192.0.2.2', `a=${direction}`, `a=mid:${mid}`, 'a=rtcp-mux', 'a=ice-ufrag:dKIV'],
  ...['a=ice-pwd:ZIfIRIYpk6R20YiO09d11v', 'a=ice-options:trickle', `a=setup:${setup}`],
];
const description = (...mids) => [
  ...['v=0', 'o=- 1795361821667431 1 IN IP4 192.0.2.2', 's=VideoRoom meeting', 't=0 0'],
  ...[`a=group:BUNDLE ${mids.join(' ')}`, 'a=ice-options:trickle'],
  `a=fingerprint:sha-256 ${Array(32).fill('2A').join(':')}`,
  ...['a=extmap-allow-mixed', 'a=msid-semantic: WMS *'],
];
const VP8 = [
  ...['a=rtpmap:96 VP8/90000', 'a=rtcp-fb:96 ccm fir', 'a=rtcp-fb:96 nack'],
  ...['a=rtcp-fb:96 nack pli', 'a=rtcp-fb:96 goog-remb', 'a=rtcp-fb:96 transport-cc'],
];

// As a Janus server answers the engine's offer.
export const ANSWER = lines(
  ...description('video0', 'audio1'),
  ...['m=video 9 UDP/TLS/RTP/SAVPF 96 98', ...connection('recvonly', 'video0', 'active'), ...VP8],
  ...['a=rtpmap:98 rtx/90000', 'a=fmtp:98 apt=96', 'a=msid:janus janusvideo0'],
  'a=ssrc:653134685 cname:janus',
  ...['m=audio 9 UDP/TLS/RTP/SAVPF 111 99', ...connection('recvonly', 'audio1', 'active')],
  ...['a=rtpmap:111 opus/48000/2', 'a=rtpmap:99 rtx/90000', 'a=fmtp:99 apt=111'],
  ...['a=msid:janus janusaudio1', 'a=ssrc:1629871652 cname:janus'],
);

// As it offers what a participant sends.
export const OFFER = lines(
  ...description('0', '1'),
  ...['m=video 9 UDP/TLS/RTP/SAVPF 96 97', ...connection('sendonly', '0', 'actpass'), ...VP8],
  'a=extmap:2 http://www.webrtc.org/experiments/rtp-hdrext/abs-send-time',
  'a=extmap:4 urn:ietf:params:rtp-hdrext:sdes:mid',
  ...['a=rtpmap:97 rtx/90000', 'a=fmtp:97 apt=96', 'a=ssrc-group:FID 473907205 2712437602'],
  ...['a=msid:janus janus0', 'a=ssrc:473907205 cname:janus', 'a=ssrc:2712437602 cname:janus'],
  ...['m=audio 9 UDP/TLS/RTP/SAVPF 111', ...connection('sendonly', '1', 'actpass')],
  ...['a=rtpmap:111 opus/48000/2', 'a=extmap:4 urn:ietf:params:rtp-hdrext:sdes:mid'],
  ...['a=msid:janus janus1', 'a=ssrc:3138467559 cname:janus'],
);

const state = JSON.stringify({ guid: 'g', muted: false });

// Somebody in the room, as it tells of them.
export const publisher = (id, display = id) => ({
  ...{ id, display, video_codec: 'vp8', audio_codec: 'opus' },
  streams: [
    { type: 'video', mindex: 0, mid: 'video0', description: state, codec: 'vp8' },
    { type: 'audio', mindex: 1, mid: 'audio1', description: state, codec: 'opus' },
  ],
});

export class FakeSfu extends EventEmitter {
  #sockets = [];
  #lastId = 0;
  #publisherHandle = 0;
  #authority;
  #scheme;

  // Who is there when somebody joins.
  publishers = [];
  // What is sent in place of an answer of this kind: messages, or texts that are none. The kinds are
  // "created", "attached", "joined", "published", "offered", "started" and "done".
  replies = (kind, answer) => [answer];

  // Until the test ends; with a `certificate`, { certificate, key }, over TLS. Emits "request" for each
  // request, with its kind of answer, and "connection" for each connection.
  static async start(test, certificate) {
    const sfu = new FakeSfu();
    sfu.setMaxListeners(0);
    const address = ownAddress();
    const options = { handleProtocols: () => 'janus-protocol' };
    const files = certificate && {
      cert: readFileSync(certificate.certificate),
      key: readFileSync(certificate.key),
    };
    const tls = files && createServer(files).listen(0, address);
    const listener = new WebSocketServer(
      tls ? { ...options, server: tls } : { ...options, host: address, port: 0 },
    );
    await once(tls ?? listener, 'listening');
    test.after(() => {
      for (const socket of sfu.#sockets) socket.terminate();
      listener.close();
      tls?.close();
    });
    sfu.#scheme = tls ? 'janus+wss' : 'janus+ws';
    sfu.#authority = `${address}:${(tls ?? listener).address().port}`;
    listener.on('connection', (socket, { socket: stream }) => sfu.#serve(socket, stream));
    return sfu;
  }

  uri(parameters = {}) {
    const query = new URLSearchParams({
      ...{ room: ROOM, camera: 'card:1', microphone: 'tone:440' },
      ...parameters,
    });
    return `${this.#scheme}://${this.#authority}/?${query}`;
  }

  // Resolves with the next request that is answered with this kind.
  asked(kind) {
    return new Promise((resolve) => {
      const take = (each, request) => {
        if (each !== kind) return;
        this.off('request', take);
        resolve(request);
      };
      this.on('request', take);
    });
  }

  get publisherHandle() {
    return this.#publisherHandle;
  }

  // Says something by itself through the publisher's handle, or as a text that is no message.
  tell(message, sender = this.#publisherHandle) {
    this.#send(typeof message === 'string' ? message : { sender, ...message });
  }

  // An event of the room.
  tellRoom(data, jsep, sender) {
    this.tell({ janus: 'event', ...this.#plugin(data), ...(jsep && { jsep }) }, sender);
  }

  #plugin(data) {
    return { plugindata: { plugin: 'janus.plugin.videoroom', data: { room: ROOM, ...data } } };
  }

  #send(message) {
    this.#sockets.at(-1)?.send(typeof message === 'string' ? message : JSON.stringify(message));
  }

  #serve(socket, stream) {
    this.#sockets.push(socket);
    socket.on('message', (text) => this.#take(JSON.parse(text)));
    socket.on('error', () => {});
    this.emit('connection', socket, stream);
  }

  #take(request) {
    const [kind, answer] = this.#answer(request);
    const { transaction, session_id, handle_id: sender } = request;
    const full = { transaction, session_id, ...(sender && { sender }), ...answer };
    for (const reply of this.replies(kind, full, request)) this.#send(reply);
    this.emit('request', kind, request);
  }

  // The kind of an answer, and the answer.
  #answer({ janus, body = {}, handle_id }) {
    if (janus === 'create') return ['created', { janus: 'success', data: { id: ++this.#lastId } }];
    if (janus === 'attach') return ['attached', { janus: 'success', data: { id: ++this.#lastId } }];
    const event = (kind, data, jsep) => [
      kind,
      { janus: 'event', ...this.#plugin(data), ...(jsep && { jsep }) },
    ];
    switch (`${body.request} ${body.ptype ?? ''}`) {
      case 'join publisher':
        this.#publisherHandle = handle_id;
        return event('joined', {
          ...{ videoroom: 'joined', description: 'a room', id: 'me', private_id: PRIVATE_ID },
          ...{ publishers: this.publishers, attendees: [] },
        });
      case 'join subscriber': {
        const streams = ['video', 'audio'].map((type, index) => ({
          ...{ type, mindex: index, mid: `${index}`, feed_id: body.streams[0].feed, send: true },
        }));
        const jsep = { type: 'offer', sdp: OFFER };
        return event('offered', { videoroom: 'attached', streams }, jsep);
      }
      case 'publish ':
        return event(
          'published',
          { videoroom: 'event', configured: 'ok' },
          { type: 'answer', sdp: ANSWER },
        );
      case 'start ':
        return event('started', { videoroom: 'event', started: 'ok' });
      case 'configure ':
        return event('configured', { videoroom: 'event', configured: 'ok' });
      default:
        return [janus, { janus: 'ack' }];
    }
  }
}
