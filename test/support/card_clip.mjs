// Clips of uncompressed video that show the code of a test card.

import { writeFileSync } from 'node:fs';

const ROWS = 3;
const COLUMNS = 24;
const [DARK, LIGHT, MIDDLE] = [16, 235, 128];
const REMOTE = 1;

// Writes a YUV4MPEG2 file of one frame with this detail, whose size is even.
export function writeCardClip(file, { width, height, detail }) {
  const code = Buffer.from([REMOTE << 6, 0, 0, 0, 1, detail >> 16, detail >> 8, detail, 0xa5]);
  code[8] = code.reduce((sum, byte) => sum ^ byte);
  const luma = Buffer.alloc(width * height, MIDDLE);
  const side = Math.max(2, Math.min(Math.floor(width / 32), Math.floor(height / 24)));
  for (let bit = 0; bit < ROWS * COLUMNS; bit++) {
    const light = (code[bit >> 3] & (0x80 >> (bit % 8))) !== 0;
    const left = (bit % COLUMNS) * side;
    const top = Math.floor(bit / COLUMNS) * side;
    for (let y = top; y < top + side; y++) {
      luma.fill(light ? LIGHT : DARK, y * width + left, y * width + left + side);
    }
  }
  const chroma = Buffer.alloc((width * height) / 2, MIDDLE);
  const header = `YUV4MPEG2 W${width} H${height} F30:1 Ip A1:1 C420jpeg\nFRAME\n`;
  writeFileSync(file, Buffer.concat([Buffer.from(header), luma, chroma]));
}
