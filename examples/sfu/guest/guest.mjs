// The guest's page: ?server=ws://...&room=... and, if the room requires them, &pin=... and
// &name=...

import { joinRoom } from './room_guest.mjs';
import { syntheticCamera, syntheticMicrophone } from './synthetic_sources.mjs';

const status = document.querySelector('#status');
const people = document.querySelector('#people');
const asked = new URLSearchParams(location.search);

// The camera and the microphone, or replacements for missing ones.
async function ownTracks() {
  const open = (constraints) =>
    navigator.mediaDevices.getUserMedia(constraints).catch(() => undefined);
  const camera = await open({ video: { width: 640, height: 360 } });
  const microphone = await open({ audio: true });
  const missing = [!camera && 'camera', !microphone && 'microphone'].filter(Boolean);
  return {
    tracks: [
      camera?.getVideoTracks()[0] ?? syntheticCamera(),
      microphone?.getAudioTracks()[0] ?? syntheticMicrophone(),
    ],
    note: missing.length > 0 ? ` Without ${missing.join(' and ')}: something stands in.` : '',
  };
}

function show(id, name, stream) {
  let figure = document.getElementById(id);
  if (!figure) {
    figure = Object.assign(document.createElement('figure'), { id });
    const video = Object.assign(document.createElement('video'), {
      ...{ autoplay: true, playsInline: true },
    });
    const caption = Object.assign(document.createElement('figcaption'), { textContent: name });
    figure.append(video, caption);
    people.append(figure);
  }
  figure.querySelector('video').srcObject = stream;
}

try {
  const { tracks, note } = await ownTracks();
  show('me', 'me', new MediaStream(tracks.filter(({ kind }) => kind === 'video')));
  const guest = await joinRoom({
    server: asked.get('server'),
    room: asked.get('room'),
    pin: asked.get('pin'),
    name: asked.get('name') ?? 'guest',
    tracks,
    onArrived: (id, name, stream) => show(`feed-${id}`, name, stream),
    onGone: (id) => document.getElementById(`feed-${id}`)?.remove(),
  });
  status.textContent = `In the room.${note}`;
  const leave = () => {
    guest.leave();
    status.textContent = 'Left.';
  };
  document.querySelector('#leave').addEventListener('click', leave, { once: true });
  addEventListener('pagehide', leave, { once: true });
} catch (error) {
  status.textContent = `Not in the room: ${error.message}`;
}
