// A guest in a room of a Janus server: the browser's own WebRTC, and the server's WebSocket.

const PLUGIN = 'janus.plugin.videoroom';
const KEEP_ALIVE_MS = 15_000;
// The plugin's own codes.
const NO_SUCH_ROOM = 426;
const ROOM_EXISTS = 427;
const ID_EXISTS = 436;
// Who has this identity in the room for content may present. The server gives it to one at a time.
const PRESENTER = 'presenter';
// What the engine creates, too.
const CONTENT_ROOM = {
  ...{ description: 'content of a meeting', permanent: false, is_private: true, publishers: 1 },
  ...{ require_pvtid: true, bitrate: 3_000_000, videocodec: 'vp8,h264' },
};

// One connection to the server, and the handles to its plugin.
class Session {
  #socket;
  #ids;
  #asked = 0;
  #answers = new Map();
  #handles = new Map();
  #keepAlive;

  constructor(socket, token) {
    this.#socket = socket;
    this.#ids = token ? { token } : {};
    socket.addEventListener('message', ({ data }) => this.#take(JSON.parse(data)));
  }

  // The server requires the token, if any, in every request. The room in the address is for what is in
  // front of several servers and chooses one by the room.
  static async open(server, room, token) {
    const url = new URL(server);
    url.searchParams.set('room', room);
    const socket = new WebSocket(url, 'janus-protocol');
    await new Promise((resolve, reject) => {
      socket.addEventListener('open', resolve);
      socket.addEventListener('error', () => reject(new Error(`${server} cannot be reached`)));
    });
    const session = new Session(socket, token);
    const { data } = await session.send({ janus: 'create' });
    session.#ids.session_id = data.id;
    session.#keepAlive = setInterval(() => session.send({ janus: 'keepalive' }), KEEP_ALIVE_MS);
    return session;
  }

  #take(message) {
    const answer = this.#answers.get(message.transaction);
    if (message.janus === 'ack') return;
    if (answer) {
      this.#answers.delete(message.transaction);
      answer(message);
    } else {
      this.#handles.get(message.sender)?.(message);
    }
  }

  send(message) {
    const transaction = `${++this.#asked}`;
    this.#socket.send(JSON.stringify({ ...message, ...this.#ids, transaction }));
    return new Promise((resolve) => this.#answers.set(transaction, resolve));
  }

  // A handle; `told` is called with the server's unsolicited messages.
  async attach(told) {
    const { data } = await this.send({ janus: 'attach', plugin: PLUGIN });
    this.#handles.set(data.id, told);
    const handle_id = data.id;
    return {
      trickle: (candidate) => this.send({ janus: 'trickle', handle_id, candidate }),
      detach: () => this.send({ janus: 'detach', handle_id }),
      ask: async (body, jsep) => {
        const { plugindata, jsep: answer } = await this.send({
          ...{ janus: 'message', handle_id, body },
          ...(jsep && { jsep: { type: jsep.type, sdp: jsep.sdp } }),
        });
        const { error, error_code: code } = plugindata.data;
        if (error) throw Object.assign(new Error(error), { code });
        return { data: plugindata.data, jsep: answer };
      },
    };
  }

  close() {
    clearInterval(this.#keepAlive);
    this.send({ janus: 'destroy' });
    this.#socket.close();
  }
}

// A peer connection that sends its candidates through a handle, and queues the server's until it
// has the server's description.
class Peer {
  #early = [];

  constructor() {
    this.connection = new RTCPeerConnection();
  }

  tellThrough(handle) {
    this.connection.addEventListener('icecandidate', ({ candidate }) =>
      handle.trickle(candidate?.toJSON() ?? { completed: true }),
    );
  }

  async addCandidate(candidate) {
    if (candidate.completed) return;
    if (this.connection.remoteDescription) await this.connection.addIceCandidate(candidate);
    else this.#early.push(candidate);
  }

  async accept(description) {
    await this.connection.setRemoteDescription(description);
    for (const candidate of this.#early.splice(0)) await this.connection.addIceCandidate(candidate);
  }
}

// Receives what others send to the room that `access` leads to. `onArrived(id, name, stream)` and
// `onGone(id)` report them.
function receiveFrom(session, access, { onArrived, onGone }) {
  const others = new Map();

  async function receive({ id, display }) {
    if (others.has(id)) return;
    others.set(id, undefined);
    const peer = new Peer();
    const handle = await session.attach(({ janus, candidate }) => {
      if (janus === 'trickle') peer.addCandidate(candidate);
    });
    others.set(id, { peer, handle });
    peer.tellThrough(handle);
    peer.connection.addEventListener('track', ({ streams }) => onArrived(id, display, streams[0]));
    const { jsep } = await handle.ask({
      ...{ request: 'join', ptype: 'subscriber', streams: [{ feed: id }] },
      ...access,
    });
    await peer.accept(jsep);
    await peer.connection.setLocalDescription();
    await handle.ask({ request: 'start' }, peer.connection.localDescription);
  }

  function forget(id) {
    const other = others.get(id);
    if (!other) return;
    others.delete(id);
    other.peer.connection.close();
    other.handle.detach();
    onGone(id);
  }

  return {
    // What the server tells of the room.
    take({ publishers = [], unpublished, leaving }) {
      publishers.forEach(receive);
      for (const id of [unpublished, leaving]) forget(id);
    },
    close() {
      for (const other of others.values()) other?.peer.connection.close();
    },
  };
}

// Enters a room, as whom `identity` says. `told` is called with what the server tells of the room.
async function enter(session, access, identity, told = () => {}) {
  const sending = new Peer();
  const handle = await session.attach(({ janus, candidate, plugindata }) => {
    if (janus === 'trickle') sending.addCandidate(candidate);
    if (janus === 'event') told(plugindata.data);
  });
  try {
    const request = { request: 'join', ptype: 'publisher', ...identity, ...access };
    const { data } = await handle.ask(request);
    return { data, handle, sending };
  } catch (error) {
    handle.detach();
    throw error;
  }
}

// Sends `tracks` to a room that was entered; `descriptions` go with them.
async function send({ handle, sending }, tracks, descriptions) {
  for (const track of tracks) {
    sending.connection.addTransceiver(track, { direction: 'sendonly' });
  }
  sending.tellThrough(handle);
  await sending.connection.setLocalDescription();
  const request = { request: 'publish', ...(descriptions && { descriptions }) };
  const { jsep } = await handle.ask(request, sending.connection.localDescription);
  await sending.accept(jsep);
}

// Enters the room for content beside the meeting's, where `ownId` is the guest's identity. Resolves
// to a function that presents a track, and resolves to one that ends this.
async function enterContent(session, { room, pin }, { name, ownId, token, ...reports }) {
  const access = { room: `${room}-content`, ...(pin && { pin }) };
  const allowed = token ? { token } : {};
  let presentation;
  const receiver = receiveFrom(session, access, reports);
  const take = ({ publishers = [], ...others }) =>
    receiver.take({
      publishers: publishers.filter(({ id }) => id !== presentation?.data.id),
      ...others,
    });
  const enterAs = (identity, told) => enter(session, access, { ...identity, ...allowed }, told);
  let listener;
  try {
    listener = await enterAs({}, take);
  } catch (error) {
    if (error.code !== NO_SUCH_ROOM) throw error;
    const handle = await session.attach(() => {});
    await handle.ask({ request: 'create', ...access, ...CONTENT_ROOM }).catch((refusal) => {
      if (refusal.code !== ROOM_EXISTS) throw refusal;
    });
    handle.detach();
    listener = await enterAs({}, take);
  }
  access.private_id = listener.data.private_id;
  take(listener.data);

  async function present(openTrack) {
    const taken = (error) => {
      throw error.code === ID_EXISTS ? new Error('somebody else presents') : error;
    };
    const place = await enterAs({ id: PRESENTER }).catch(taken);
    const stop = () => {
      presentation?.sending.connection.close();
      presentation?.handle.detach();
      presentation = undefined;
      place.handle.detach();
    };
    try {
      if (place.data.publishers.length > 0) throw new Error('somebody else presents');
      const track = await openTrack();
      presentation = await enterAs({ display: name });
      const state = JSON.stringify({ presenter: ownId, muted: false });
      await send(presentation, [track], [{ mid: '0', description: state }]);
    } catch (error) {
      stop();
      throw error;
    }
    return stop;
  }
  return { present, close: receiver.close };
}

// Joins `room` and sends `tracks`. `onArrived(id, name, stream)` and `onGone(id)` report the
// others, `onContent(id, name, stream)` and `onContentGone(id)` what they present.
export async function joinRoom({ server, room, pin, token, name, tracks, ...reports }) {
  const session = await Session.open(server, room, token);
  const access = { room, ...(pin && { pin }) };
  const receiver = receiveFrom(session, access, reports);
  const own = await enter(session, access, { display: name }, receiver.take);
  // Ties what is received to who is in the room.
  access.private_id = own.data.private_id;
  await send(own, tracks);
  receiver.take(own.data);
  const { onContent: onArrived, onContentGone: onGone } = reports;
  const identity = { name, token, ownId: own.data.id };
  // A server may have no such room, and let nobody make it.
  const content = await enterContent(
    session,
    { room, pin },
    { ...identity, onArrived, onGone },
  ).catch((error) => ({ close() {}, present: () => Promise.reject(error) }));
  const leave = () => {
    receiver.close();
    content.close();
    own.sending.connection.close();
    session.close();
  };
  return { leave, present: content.present };
}
