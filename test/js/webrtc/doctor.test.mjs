// What the doctor and a call say about the machine on which real meetings are to be held.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { copyFileSync, mkdirSync, readdirSync, symlinkSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { addonFile, build, repository } from '../../support/build.mjs';
import { SoundServer } from '../../support/sound_server.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { openMember } from '../../support/webrtc_room.mjs';

const COMMAND = path.join(repository, 'bin/tessel-wrapper.js');
const PLUGINS = '/usr/lib/x86_64-linux-gnu/gstreamer-1.0';

// What the doctor says about real meetings, in `environment`.
function examined(environment = {}) {
  const { status, stdout, stderr } = spawnSync(process.execPath, [COMMAND, 'doctor'], {
    env: { ...process.env, TESSEL_WRAPPER_ADDON: addonFile, ...environment },
    encoding: 'utf8',
  });
  assert.equal(stderr, '');
  const lines = stdout.split('\n');
  return { status, lines: lines.slice(lines.findIndex((line) => line.includes('real meetings:'))) };
}

// The environment of a system without this plugin of GStreamer's.
function withoutPlugin(t, hidden) {
  const directory = temporaryDirectory(t);
  const plugins = path.join(directory, 'plugins');
  mkdirSync(plugins);
  for (const name of readdirSync(PLUGINS)) {
    if (name !== hidden) symlinkSync(path.join(PLUGINS, name), path.join(plugins, name));
  }
  return {
    GST_PLUGIN_SYSTEM_PATH_1_0: plugins,
    GST_PLUGIN_PATH_1_0: '',
    GST_REGISTRY_1_0: path.join(directory, 'registry.bin'),
  };
}

test('the engine, the elements that it needs and the devices that are there are named', async (t) => {
  const { environment } = await SoundServer.start(t);
  const { status, lines } = examined(environment);
  assert.equal(status, 0);
  assert.equal(lines[0], `ok       real meetings: engine ${build}/webrtc/libtesselclient.so`);
  const text = lines.join('\n');
  for (const line of [
    /^ok {7}real meetings: gstreamer1\.0-plugins-base has .*\bopusenc\b/m,
    /^ok {7}real meetings: gstreamer1\.0-plugins-good has .*\bvp8enc\b/m,
    /^ok {7}real meetings: gstreamer1\.0-plugins-bad has .*\bwebrtcbin\b/m,
    /^ok {7}real meetings: gstreamer1\.0-nice has nicesrc$/m,
    /^ok {7}real meetings: gstreamer1\.0-pulseaudio has pulsesrc, pulsesink$/m,
    /^ok {7}real meetings: cameras: /m,
    // What a speaker plays is none.
    /^ok {7}real meetings: microphones: none$/m,
    /^ok {7}real meetings: speakers: Null Output$/m,
  ]) {
    assert.match(text, line);
  }
  assert.match(examined({ PULSE_SERVER: 'unix:/nowhere' }).lines.join('\n'), /speakers: none$/m);
});

// The problems that the doctor finds, each with its advice.
function problems(environment) {
  const { status, lines } = examined(environment);
  assert.equal(status, 1);
  return lines.flatMap((line, index) =>
    line.startsWith('problem  ') ? [lines.slice(index, index + 2)] : [],
  );
}

for (const [plugin, package_, elements] of [
  ['libgstvpx.so', 'gstreamer1.0-plugins-good', 'vp8dec, vp8enc'],
  ['libgstpulseaudio.so', 'gstreamer1.0-pulseaudio', 'pulsesrc, pulsesink'],
]) {
  test(`without ${plugin} the package that has it is a problem`, (t) => {
    const environment = withoutPlugin(t, plugin);
    // GStreamer lists these plugins in a registry, and uses that as it is later.
    spawnSync(path.join(build, 'webrtc/examine_webrtc_engine'), {
      env: { ...process.env, ...environment },
    });
    const { GST_REGISTRY_1_0 } = environment;
    assert.deepEqual(problems({ GST_REGISTRY_1_0, GST_REGISTRY_UPDATE: 'no' }), [
      [
        `problem  real meetings: ${package_} is missing, with ${elements}`,
        `         -> Install it: ${package_}`,
      ],
    ]);
  });
}

test('where the environment hides the plugins that are installed, its variable is named', (t) => {
  const found = problems({
    GST_PLUGIN_SYSTEM_PATH: '/nowhere',
    GST_REGISTRY_1_0: path.join(temporaryDirectory(t), 'registry.bin'),
  });
  assert.deepEqual(found.at(-1), [
    'problem  real meetings: GStreamer does not find pulsesrc, pulsesink of gstreamer1.0-pulseaudio',
    '         -> The environment keeps it from that: correct or unset GST_PLUGIN_SYSTEM_PATH="/nowhere"',
  ]);
  assert.equal(found.length, 5);
  for (const [, advice] of found) assert.equal(advice, found.at(-1)[1]);
});

for (const [plugin, reason] of [
  ['libgstnice.so', "GStreamer's element nicesrc is missing: install gstreamer1.0-nice"],
  [
    'libgstopenh264.so',
    "GStreamer's element openh264dec is missing: install gstreamer1.0-plugins-bad",
  ],
  ['libgstwebrtc.so', "GStreamer's element webrtcbin is missing: install gstreamer1.0-plugins-bad"],
]) {
  test(`a call without ${plugin} ends with the package that has it`, async (t) => {
    const member = await openMember(t, { environment: withoutPlugin(t, plugin) });
    const answer = await member.does('join', 'janus+ws://127.0.0.1:1/?room=r');
    assert.deepEqual([answer.code, answer.reason], [500, reason]);
  });
}

test('without the plugin for sound the log names its package', async (t) => {
  const member = await openMember(t, { environment: withoutPlugin(t, 'libgstpulseaudio.so') });
  await member.does(
    'logged',
    'there is no sound: pulsedeviceprovider is missing, install gstreamer1.0-pulseaudio',
  );
});

test('a build without the engine says how to get it', (t) => {
  const directory = temporaryDirectory(t);
  for (const name of ['tesselWrapper.node', 'libtesselclient.so']) {
    copyFileSync(path.join(build, name), path.join(directory, name));
  }
  const { status, lines } = examined({
    TESSEL_WRAPPER_ADDON: path.join(directory, 'tesselWrapper.node'),
  });
  assert.equal(status, 0);
  assert.deepEqual(lines.slice(0, 2), [
    `ok       real meetings: no engine in ${directory}/webrtc`,
    '         -> npm run build:webrtc builds it, for those who need it.',
  ]);
});
