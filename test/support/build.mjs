// The build under test. TESSEL_BUILD names its directory, from the repository's root; without it, it
// is build/release.

import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const repository = fileURLToPath(new URL('../..', import.meta.url));
export const build = path.resolve(repository, process.env.TESSEL_BUILD ?? 'build/release');
// Beside the embedded engine, unless TESSEL_TEST_ENGINE is "webrtc".
export const addonFile = path.join(
  build,
  process.env.TESSEL_TEST_ENGINE === 'webrtc' ? 'webrtc' : '.',
  'tesselWrapper.node',
);

// For the package, in this process and in those that it starts.
process.env.TESSEL_WRAPPER_ADDON = addonFile;
