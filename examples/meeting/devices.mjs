// The devices that a person may choose. Listing them is the application's business; these are the
// ones of the embedded engine. The last of each kind is plugged in only where a meeting says so.

export const DEVICES = {
  camera: [
    { id: 'camera-0', title: 'Camera 1' },
    { id: 'camera-1', title: 'Camera 2' },
    { id: 'camera-2', title: 'Camera 3' },
  ],
  microphone: [
    { id: 'microphone-0', title: 'Microphone 1' },
    { id: 'microphone-1', title: 'Microphone 2' },
    { id: 'microphone-2', title: 'Microphone 3' },
  ],
  speaker: [
    { id: 'speaker-0', title: 'Speaker 1' },
    { id: 'speaker-1', title: 'Speaker 2' },
    { id: 'speaker-2', title: 'Speaker 3' },
  ],
};

export const isDevice = (kind, id) =>
  Object.hasOwn(DEVICES, kind) && DEVICES[kind].some((device) => device.id === id);
