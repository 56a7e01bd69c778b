// A PulseAudio server of one's own, with one speaker that plays into nothing and can be listened to.

import { spawn } from 'node:child_process';
import { once } from 'node:events';

import { temporaryDirectory } from './temporary_directory.mjs';

const RATE = 48_000;
const SPEAKER = 'speaker';

// How much of `samples` is a sine of this frequency: 1 for nothing else (Goertzel's algorithm).
export function shareOf(hertz, samples) {
  const factor = 2 * Math.cos((2 * Math.PI * hertz) / RATE);
  let [last, beforeLast, energy] = [0, 0, 0];
  for (const sample of samples) {
    [last, beforeLast] = [sample + factor * last - beforeLast, last];
    energy += sample * sample;
  }
  const power = last * last + beforeLast * beforeLast - factor * last * beforeLast;
  return energy === 0 ? 0 : (2 * power) / (samples.length * energy);
}

export class SoundServer {
  static async start(test) {
    const server = new SoundServer();
    const directory = temporaryDirectory(test);
    server.environment = {
      XDG_RUNTIME_DIR: directory,
      PULSE_SERVER: `unix:${directory}/native`,
      XDG_CONFIG_HOME: directory,
    };
    const daemon = spawn(
      'pulseaudio',
      [
        ...[
          '-n',
          '--daemonize=no',
          '--exit-idle-time=-1',
          '--use-pid-file=no',
          '--log-level=notice',
        ],
        ...['-L', `module-native-protocol-unix socket=${directory}/native auth-anonymous=1`],
        ...['-L', `module-null-sink sink_name=${SPEAKER} rate=${RATE}`],
      ],
      { env: { ...process.env, ...server.environment, LD_PRELOAD: '' }, stdio: 'ignore' },
    );
    test.after(async () => {
      daemon.kill();
      if (daemon.exitCode === null) await once(daemon, 'exit');
    });
    await server.#run('pactl', ['--', 'info'], 200);
    return server;
  }

  // Runs a client, again until it succeeds: the server may not listen yet.
  async #run(program, args, times) {
    for (let time = 0; time < times; time++) {
      const client = spawn(program, args, {
        env: { ...process.env, ...this.environment, LD_PRELOAD: '' },
        stdio: 'ignore',
      });
      const [code] = await once(client, 'exit');
      if (code === 0) return;
      await new Promise((resolve) => setTimeout(resolve, 50));
    }
    throw new Error(`${program} does not succeed`);
  }

  // What the speaker plays, as an endless series of pieces of `count` samples.
  async *listen(test, count) {
    const recorder = spawn(
      'parec',
      [
        `--device=${SPEAKER}.monitor`,
        '--format=float32le',
        '--channels=1',
        `--rate=${RATE}`,
        '--raw',
      ],
      {
        env: { ...process.env, ...this.environment, LD_PRELOAD: '' },
        stdio: ['ignore', 'pipe', 'ignore'],
      },
    );
    test.after(() => recorder.kill());
    let kept = Buffer.alloc(0);
    for await (const piece of recorder.stdout) {
      kept = Buffer.concat([kept, piece]);
      while (kept.length >= 4 * count) {
        yield new Float32Array(Uint8Array.prototype.slice.call(kept, 0, 4 * count).buffer);
        kept = kept.subarray(4 * count);
      }
    }
  }

  // Settles when the speaker plays what `matches`.
  async hears(test, matches) {
    for await (const samples of this.listen(test, RATE / 2)) if (matches(samples)) return;
  }
}
