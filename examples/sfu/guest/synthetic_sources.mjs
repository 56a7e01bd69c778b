// Replacements for a missing camera and a missing microphone.

const WIDTH = 640;
const HEIGHT = 360;
const FRAMES_PER_SECOND = 30;

// A moving picture with a text that it replaces a camera.
export function syntheticCamera() {
  const canvas = Object.assign(document.createElement('canvas'), { width: WIDTH, height: HEIGHT });
  const context = canvas.getContext('2d');
  let count = 0;
  setInterval(() => {
    count += 1;
    context.fillStyle = `hsl(${count % 360} 60% 30%)`;
    context.fillRect(0, 0, WIDTH, HEIGHT);
    context.fillStyle = 'white';
    context.font = '32px sans-serif';
    context.fillText(`no camera · ${count}`, 40, HEIGHT / 2);
  }, 1000 / FRAMES_PER_SECOND);
  return canvas.captureStream(FRAMES_PER_SECOND).getVideoTracks()[0];
}

// Silence.
export function syntheticMicrophone() {
  const audio = new AudioContext();
  return audio.createMediaStreamDestination().stream.getAudioTracks()[0];
}
