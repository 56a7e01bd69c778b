// A guest in a room of a Janus server: the browser's own WebRTC, and the server's WebSocket.

const PLUGIN = 'janus.plugin.videoroom';
const KEEP_ALIVE_MS = 15_000;

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
        if (plugindata.data.error) throw new Error(plugindata.data.error);
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

// Joins `room` and sends `tracks`. `onArrived(id, name, stream)` and `onGone(id)` report the
// others.
export async function joinRoom({ server, room, pin, token, name, tracks, onArrived, onGone }) {
  const session = await Session.open(server, room, token);
  const access = { room, ...(pin && { pin }) };
  const others = new Map();
  const sending = new Peer();

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

  const take = ({ publishers = [], unpublished, leaving }) => {
    publishers.forEach(receive);
    for (const id of [unpublished, leaving]) forget(id);
  };

  const handle = await session.attach(({ janus, candidate, plugindata }) => {
    if (janus === 'trickle') sending.addCandidate(candidate);
    if (janus === 'event') take(plugindata.data);
  });
  const { data } = await handle.ask({
    request: 'join',
    ptype: 'publisher',
    display: name,
    ...access,
  });
  // Ties what is received to who is in the room.
  access.private_id = data.private_id;
  for (const track of tracks) {
    sending.connection.addTransceiver(track, { direction: 'sendonly' });
  }
  sending.tellThrough(handle);
  await sending.connection.setLocalDescription();
  const { jsep } = await handle.ask({ request: 'publish' }, sending.connection.localDescription);
  await sending.accept(jsep);
  take(data);
  const leave = () => {
    for (const other of others.values()) other?.peer.connection.close();
    sending.connection.close();
    session.close();
  };
  return { leave };
}
