// The command-line options of a program.

import { accessSync, constants, mkdirSync } from 'node:fs';
import { parseArgs } from 'node:util';

const LAST_PORT = 65535;

// Ends the program because of an invalid command line: one line with the reason and the valid
// options, and the exit code 2.
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

// Whether the command line asks for the help.
export const isHelpWanted = () => process.argv.some((argument) => /^(--help|-h)$/.test(argument));

// Checks the number of a port that an option gives.
export function checkPort(option, port, usage) {
  if (!/^\d+$/.test(port) || Number(port) > LAST_PORT) {
    refuseUsage(`${option} ${port}: not a number from 0 to ${LAST_PORT}`, usage);
  }
}

// Creates the directory given by `--output` if it is missing, and checks that files can be written
// there.
export function makeOutputDirectory({ output }, usage) {
  try {
    mkdirSync(output, { recursive: true });
    accessSync(output, constants.W_OK);
  } catch ({ message }) {
    refuseUsage(`--output ${output}: ${message}`, usage);
  }
}
