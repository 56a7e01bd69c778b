// The guest's page: ?server=ws://...&room=... and, if they are required, &pin=... and &token=...
// Joining is left to a button: a browser plays other people's sound only after its user has done
// something.

import { joinRoom } from './room_guest.mjs';
import { syntheticCamera, syntheticMicrophone } from './synthetic_sources.mjs';

const status = document.querySelector('#status');
const people = document.querySelector('#people');
const form = document.querySelector('form');
const leaveButton = document.querySelector('#leave');
const presentButton = document.querySelector('#present');
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
    note:
      missing.length > 0 ? ` There is no ${missing.join(' and no ')}: a replacement is sent.` : '',
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

function showForm(text) {
  status.textContent = text;
  form.hidden = false;
  leaveButton.hidden = true;
  presentButton.hidden = true;
  people.replaceChildren();
}

// Lets the button begin and end a presentation of the guest's.
function offerToPresent(guest) {
  let stop;
  const end = () => {
    stop?.();
    stop = undefined;
    presentButton.textContent = 'Present';
  };
  presentButton.textContent = 'Present';
  presentButton.hidden = false;
  presentButton.onclick = async () => {
    if (stop) return end();
    presentButton.disabled = true;
    let track;
    try {
      const endTransmission = await guest.present(async () => {
        const screen = await navigator.mediaDevices.getDisplayMedia({ video: true });
        [track] = screen.getVideoTracks();
        return track;
      });
      stop = () => {
        endTransmission();
        track.stop();
      };
      track.addEventListener('ended', end);
      presentButton.textContent = 'Stop presenting';
    } catch (error) {
      track?.stop();
      status.textContent = `Not presented: ${error.message}`;
    } finally {
      presentButton.disabled = false;
    }
  };
}

async function join(name) {
  form.hidden = true;
  status.textContent = 'Joining…';
  const { tracks, note } = await ownTracks();
  const stopTracks = () => tracks.forEach((track) => track.stop());
  show('me', name, new MediaStream(tracks.filter(({ kind }) => kind === 'video')));
  try {
    const guest = await joinRoom({
      server: asked.get('server'),
      room: asked.get('room'),
      pin: asked.get('pin'),
      token: asked.get('token'),
      name,
      tracks,
      onArrived: (id, displayName, stream) => show(`feed-${id}`, displayName, stream),
      onGone: (id) => document.getElementById(`feed-${id}`)?.remove(),
      onContent: (id, displayName, stream) =>
        show(`content-${id}`, `${displayName} presents`, stream),
      onContentGone: (id) => document.getElementById(`content-${id}`)?.remove(),
    });
    status.textContent = `In the room.${note}`;
    leaveButton.hidden = false;
    offerToPresent(guest);
    const leave = () => {
      removeEventListener('pagehide', leave);
      guest.leave();
      stopTracks();
      showForm('Left.');
    };
    leaveButton.onclick = leave;
    addEventListener('pagehide', leave);
  } catch (error) {
    stopTracks();
    showForm(`Not in the room: ${error.message}`);
  }
}

form.addEventListener('submit', (event) => {
  event.preventDefault();
  join(form.elements.name.value);
});
