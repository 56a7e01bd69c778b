import { execFileSync } from 'node:child_process';

// Runs ffmpeg, without the sanitizer's runtime that a node under test may have preloaded.
export function ffmpeg(...args) {
  execFileSync('ffmpeg', ['-loglevel', 'error', ...args], {
    env: { ...process.env, LD_PRELOAD: '' },
  });
}
