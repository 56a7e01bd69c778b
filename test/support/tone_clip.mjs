// WAV files.

import { writeFileSync } from 'node:fs';

const HEADER_BYTES = 44;
const PCM = 1;

// The first bytes of a file with so many bytes of samples.
export function waveHeader({ rate, channels, bits, format = PCM, dataBytes }) {
  const header = Buffer.alloc(HEADER_BYTES);
  const frame = (channels * bits) / 8;
  header.write('RIFF', 0);
  header.writeUInt32LE(HEADER_BYTES - 8 + dataBytes, 4);
  header.write('WAVEfmt ', 8);
  header.writeUInt32LE(16, 16);
  header.writeUInt16LE(format, 20);
  header.writeUInt16LE(channels, 22);
  header.writeUInt32LE(rate, 24);
  header.writeUInt32LE(rate * frame, 28);
  header.writeUInt16LE(frame, 32);
  header.writeUInt16LE(bits, 34);
  header.write('data', 36);
  header.writeUInt32LE(dataBytes, 40);
  return header;
}

// Writes as many samples, the same in every channel, as `sampleAt` gives for its times in seconds;
// they lie between -1 and 1.
export function writeSoundClip(file, { rate, channels, bits, seconds }, sampleAt) {
  const bytes = bits / 8;
  const count = Math.round(rate * seconds);
  const data = Buffer.alloc(count * channels * bytes);
  for (let index = 0; index < count * channels; index++) {
    const value = sampleAt(Math.floor(index / channels) / rate);
    const sample = Math.round(2 ** (bits - 1) * value);
    // Eight bits have no sign.
    if (bits === 8) data.writeUInt8(sample + 128, index);
    else data.writeIntLE(sample, index * bytes, bytes);
  }
  const header = waveHeader({ rate, channels, bits, dataBytes: data.length });
  writeFileSync(file, Buffer.concat([header, data]));
}

// Writes a sine of half the full scale.
export function writeToneClip(file, { hertz, ...format }) {
  writeSoundClip(file, format, (time) => Math.sin(2 * Math.PI * hertz * time) / 2);
}
