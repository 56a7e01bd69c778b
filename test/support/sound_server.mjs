// A PulseAudio server of one's own, whose speakers play into nothing and can be listened to.

import { execFile, spawn } from 'node:child_process';
import { once } from 'node:events';
import { createInterface } from 'node:readline';
import { promisify } from 'node:util';

import { temporaryDirectory } from './temporary_directory.mjs';

const RATE = 48_000;
const SPEAKER = 'speaker';
// Said when clients are accepted.
const READY = 'Daemon startup complete.';
const execute = promisify(execFile);

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
  #directory;
  #speakers;
  #daemon;

  // With a speaker, unless it is told otherwise.
  static async start(test, { speakers = [SPEAKER] } = {}) {
    const server = new SoundServer();
    server.#directory = temporaryDirectory(test);
    server.#speakers = speakers;
    server.environment = {
      XDG_RUNTIME_DIR: server.#directory,
      PULSE_SERVER: `unix:${server.#directory}/native`,
      XDG_CONFIG_HOME: server.#directory,
    };
    test.after(() => server.#stop());
    await server.#start();
    return server;
  }

  // Ends, and starts anew with the speakers of the first start and no microphone.
  async restart() {
    await this.#stop();
    await this.#start();
  }

  async #start() {
    const daemon = spawn(
      'pulseaudio',
      [
        ...['-n', '--daemonize=no', '--exit-idle-time=-1', '--use-pid-file=no'],
        ...['--log-target=stderr', '--log-level=info'],
        '-L',
        `module-native-protocol-unix socket=${this.#directory}/native auth-anonymous=1`,
      ],
      {
        env: { ...process.env, ...this.environment, LD_PRELOAD: '', LC_ALL: 'C' },
        stdio: ['ignore', 'ignore', 'pipe'],
      },
    );
    this.#daemon = daemon;
    await new Promise((resolve, reject) => {
      daemon.on('exit', (code) => reject(new Error(`pulseaudio ended: ${code}`)));
      createInterface({ input: daemon.stderr }).on('line', (line) => {
        if (line.includes(READY)) resolve();
      });
    });
    for (const speaker of this.#speakers) await this.plugSpeaker(speaker);
  }

  async #stop() {
    const daemon = this.#daemon;
    daemon.kill();
    if (daemon.exitCode === null && daemon.signalCode === null) await once(daemon, 'exit');
  }

  // Settles with what pactl prints.
  async #control(...args) {
    const { stdout } = await execute('pactl', ['--', ...args], {
      env: { ...process.env, ...this.environment, LD_PRELOAD: '' },
    });
    return stdout.trim();
  }

  // Each settles with what unplug() takes.
  plugSpeaker(name) {
    return this.#control('load-module', 'module-null-sink', `sink_name=${name}`, `rate=${RATE}`);
  }
  // A microphone that hears what a speaker of this name with "-feed" plays, which is this tone.
  async plugMicrophone(name, hertz) {
    await this.plugSpeaker(`${name}-feed`);
    await this.#control('load-module', 'module-sine', `sink=${name}-feed`, `frequency=${hertz}`);
    return this.#control(
      ...['load-module', 'module-remap-source', `source_name=${name}`],
      `master=${name}-feed.monitor`,
    );
  }
  unplug(plugged) {
    return this.#control('unload-module', plugged);
  }

  // What a speaker plays, as an endless series of pieces of `count` samples.
  async *listen(test, count, speaker = SPEAKER) {
    const recorder = spawn(
      'parec',
      [
        `--device=${speaker}.monitor`,
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

  // Settles when the speaker plays `count` samples that `matches`.
  async hears(test, matches, speaker, count = RATE / 2) {
    for await (const samples of this.listen(test, count, speaker)) if (matches(samples)) return;
  }
}
