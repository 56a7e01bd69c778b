// A program's options at the terminal.

import { accessSync, constants, mkdirSync } from 'node:fs';
import { parseArgs } from 'node:util';

// Ends the program because of how it was called: one line that says why and what may be said, and
// the exit code 2.
export function refuseUsage(reason, usage) {
  console.error(`${reason}. ${usage}`);
  process.exit(2);
}

// The values of `options`, which are described as for parseArgs.
export function readOptions(options, usage) {
  try {
    return parseArgs({ options }).values;
  } catch ({ message }) {
    const [reason] = message.split(/\.?\n|\. /); // the rest is advice
    return refuseUsage(reason, usage);
  }
}

// Makes the directory that was named by `--output`, where there is none, and sees to it that files
// can be written there.
export function makeOutputDirectory({ output }, usage) {
  try {
    mkdirSync(output, { recursive: true });
    accessSync(output, constants.W_OK);
  } catch ({ message }) {
    refuseUsage(`--output ${output}: ${message}`, usage);
  }
}
