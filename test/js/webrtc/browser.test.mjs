// A browser, with nothing but its own WebRTC, in a room of a real SFU together with the engine.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { sfuToken } from '../../../examples/operating/sfu_token.mjs';
import { guestLink, servePage } from '../../../examples/sfu/guest_page.mjs';
import { writeCardClip } from '../../support/card_clip.mjs';
import { JanusAdministrator } from '../../support/janus_administrator.mjs';
import { PATIENCE_MS, openBrowser } from '../../support/meeting_app/browser.mjs';
import { SECRETS, runExample, startConfiguredSfu } from '../../support/operating.mjs';
import { ScreenServer, yuvOf } from '../../support/screen_server.mjs';
import { SoundServer, shareOf } from '../../support/sound_server.mjs';
import { CONTENT, LOCAL, remote } from '../../support/streams.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { writeToneClip } from '../../support/tone_clip.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const CARD_CODE = readFileSync(new URL('../../support/card_code.mjs', import.meta.url), 'utf8');
const ROOM = 'meeting';
// In the order in which the page adds its tracks.
const [VIDEO_MID, AUDIO_MID] = ['0', '1'];
const TONES = { Ada: 440, Ben: 660, Grace: 880 };

// In the page: keeps the connection over which the guest sends, and how it was published.
function keepPublisher() {
  const connections = [];
  globalThis.RTCPeerConnection = class extends RTCPeerConnection {
    constructor(...args) {
      super(...args);
      connections.push(this);
    }
  };
  const { send } = WebSocket.prototype;
  WebSocket.prototype.send = function (text) {
    const { janus, session_id, handle_id, token, body } = JSON.parse(text);
    if (body?.request === 'publish') {
      // The others only answer.
      const offering = ({ signalingState }) => signalingState === 'have-local-offer';
      const connection = connections.find(offering);
      const ids = { janus, session_id, handle_id, token };
      globalThis.publisher = { connection, socket: this, ids };
    }
    send.call(this, text);
  };
}

// In the page: the guest sends no audio any more, and has told the server.
async function deactivateAudio() {
  const { connection, socket, ids } = globalThis.publisher;
  const sent = connection.getTransceivers().find(({ sender }) => sender.track.kind === 'audio');
  sent.direction = 'inactive';
  const jsep = await connection.createOffer();
  await connection.setLocalDescription(jsep);
  const answered = new Promise((resolve) => {
    socket.addEventListener('message', ({ data }) => {
      const { transaction, jsep: answer } = JSON.parse(data);
      if (transaction === 'deactivation' && answer) resolve(answer);
    });
  });
  const body = { request: 'configure' };
  socket.send(JSON.stringify({ ...ids, transaction: 'deactivation', body, jsep }));
  await connection.setRemoteDescription(await answered);
}

// The guest's page in a browser whose camera is `cameraArguments`.
async function openGuest(t, janus, cameraArguments, access) {
  const pageServer = await servePage();
  t.after(() => {
    pageServer.close();
    pageServer.closeAllConnections();
  });
  const browser = await openBrowser(t, cameraArguments);
  const page = await (await browser.newContext()).newPage();
  page.setDefaultTimeout(PATIENCE_MS);
  await page.addInitScript(keepPublisher);
  await page.goto(guestLink(pageServer, janus, ROOM, access));
  await page.getByLabel('Your name').fill('Grace');
  await page.getByRole('button', { name: 'Join' }).click();
  return page;
}

// The video of the participant of this name, in the page, once it has a picture.
async function shownVideo(page, name) {
  const video = page.locator('figure', { hasText: name }).locator('video');
  const handle = await video.elementHandle();
  await page.waitForFunction(({ videoWidth }) => videoWidth > 0, handle);
  return handle;
}

// The detail of the test card that a video of the page shows.
const shownDetail = (video) =>
  video.evaluate(async (element, source) => {
    const module = new Blob([source], { type: 'text/javascript' });
    const { readCard } = await import(URL.createObjectURL(module));
    await new Promise((resolve) => element.requestVideoFrameCallback(resolve));
    const { videoWidth: width, videoHeight: height } = element;
    const context = new OffscreenCanvas(width, height).getContext('2d');
    context.drawImage(element, 0, 0);
    const { data } = context.getImageData(0, 0, width, height);
    const yPlaneBuffer = Uint8Array.from({ length: width * height }, (_, i) => data[4 * i + 1]);
    return readCard({ width, height, yPlaneBuffer, yPlaneBufferStride: width })?.detail;
  }, CARD_CODE);

// Settles when only this tone is heard with a video of the page.
async function plays(video, hertz) {
  const analyser = await video.evaluateHandle((element) => {
    const context = new AudioContext({ sampleRate: 48_000 });
    const node = new AnalyserNode(context, { fftSize: 8_192 });
    context.createMediaStreamSource(element.srcObject).connect(node);
    return node;
  });
  const samples = () =>
    analyser.evaluate(async (node) => {
      await new Promise(requestAnimationFrame);
      const data = new Float32Array(node.fftSize);
      node.getFloatTimeDomainData(data);
      return Array.from(data);
    });
  while (shareOf(hertz, await samples()) < 0.5);
}

for (const videocodec of ['vp8', 'h264']) {
  test(`a browser and two processes see and hear each other in a room of ${videocodec}`, async (t) => {
    const janus = await startServer(t, { rooms: { [ROOM]: { videocodec } } });
    const speakers = await SoundServer.start(t);
    const file = (name) => path.join(temporaryDirectory(t), name);
    const [camera, microphone] = [file('camera.y4m'), file('microphone.wav')];
    writeCardClip(camera, { width: 640, height: 360, detail: 77 });
    const sound = { rate: 48_000, channels: 1, bits: 16, hertz: TONES.Grace, seconds: 1 };
    writeToneClip(microphone, sound);
    const page = await openGuest(t, janus, [
      '--use-fake-ui-for-media-stream',
      '--use-fake-device-for-media-stream',
      `--use-file-for-fake-video-capture=${camera}`,
      `--use-file-for-fake-audio-capture=${microphone}`,
    ]);
    await page.getByText('In the room.', { exact: true }).waitFor();
    const members = [await openMember(t, speakers), await openMember(t)];
    for (const [index, name] of ['Ada', 'Ben'].entries()) {
      const sources = { camera: `card:${5 + index}`, microphone: `tone:${TONES[name]}` };
      const uri = janus.uri(ROOM, sources);
      const answer = await members[index].does('join', uri, { endpointName: name });
      assert.deepEqual(answer, { connected: true });
      // The one who came last. The browser suppresses noise, and a tone that lasts is lowered by it:
      // the guest is heard best alone.
      const hertz = TONES[index === 0 ? 'Grace' : 'Ben'];
      await speakers.hears(t, (samples) => shareOf(hertz, samples) > 0.5);
    }

    for (const [name, detail] of [
      ['Ada', 5],
      ['Ben', 6],
    ]) {
      const video = await shownVideo(page, name);
      assert.equal(await shownDetail(video), detail);
      await plays(video, TONES[name]);
    }
    for (const [index, other, detail] of [
      [0, 'Ben', 6],
      [1, 'Ada', 5],
    ]) {
      for (const [name, expected] of [
        ['Grace', 77],
        [other, detail],
      ]) {
        const { stream } = await members[index].does('knows', name);
        const { card } = await members[index].does('picture', stream);
        assert.equal(card?.detail, expected);
      }
    }

    // What is not sent any more is not missing; it would be after 1.5 seconds.
    await members[0].does('forget');
    await page.evaluate(deactivateAudio);
    await members[0].does('pictures', LOCAL, 90);
    const events = await members[0].does('events');
    assert.deepEqual(
      events.filter(([name]) => name === 'noRtpMedia'),
      [],
    );

    // The browser does not tell that it is muted, but the room does.
    const administrator = await JanusAdministrator.connect(t, janus);
    const { participants } = await administrator.ask({ request: 'listparticipants', room: ROOM });
    const { id } = participants.find(({ display }) => display === 'Grace');
    const moderate = (mid, mute) =>
      administrator.ask({ request: 'moderate', room: ROOM, id, mid, mute });
    await moderate(VIDEO_MID, true);
    await members[0].does('cleared', remote(0));
    await moderate(AUDIO_MID, true);
    await members[0].does('knows', 'Grace', { videoMuted: true, audioMuted: true });
    await moderate(VIDEO_MID, false);
    const { card } = await members[0].does('picture', remote(0));
    assert.equal(card?.detail, 77);

    await page.getByRole('button', { name: 'Leave' }).click();
    await members[0].does('seen', 'streamRemoved', remote(0));
    await page.getByText('Left.', { exact: true }).waitFor();
    assert.equal(await page.locator('figure').count(), 0);
  });
}

test('a browser without camera and microphone reports it, sends a replacement, and shows the others', async (t) => {
  // The server requires a token, and the room that participants receive with their own identity.
  const janus = await startConfiguredSfu(t, '127.0.0.1');
  await runExample('rooms.mjs', ['create', ROOM, janus.admin]);
  const token = sfuToken(SECRETS.token, 1);
  const page = await openGuest(t, janus, [], { token });
  await page.getByText('There is no camera and no microphone: a replacement is sent.').waitFor();
  const member = await openMember(t);
  const uri = janus.uri(ROOM, { camera: 'card:5', token });
  assert.deepEqual(await member.does('join', uri, { endpointName: 'Ada' }), { connected: true });
  assert.equal(await shownDetail(await shownVideo(page, 'Ada')), 5);
  const { width, height, card } = await member.does('picture', remote(0));
  assert.equal(card, null);
  assert.equal(width / height, 640 / 360);
});

// The colour in the middle of a video of the page, as [red, green, blue].
const shownColour = (video) =>
  video.evaluate(async (element) => {
    await new Promise((resolve) => element.requestVideoFrameCallback(resolve));
    const { videoWidth: width, videoHeight: height } = element;
    const context = new OffscreenCanvas(width, height).getContext('2d');
    context.drawImage(element, 0, 0);
    return Array.from(context.getImageData(width / 2, height / 2, 1, 1).data.slice(0, 3));
  });

test('a guest presents a page of the browser, and sees what others present, one at a time', async (t) => {
  const janus = await startServer(t, { rooms: { [ROOM]: { pin: 'a pin' } } });
  const screens = await ScreenServer.start(t, [[640, 480]]);
  await screens.paint('#c02020');
  const choice = '--auto-select-tab-capture-source-by-title=Slides';
  const page = await openGuest(t, janus, [choice], { pin: 'a pin' });
  const slides = await page.context().newPage();
  await slides.setContent(
    '<title>Slides</title><body style="background: #20c040; height: 100vh; margin: 0"></body>',
  );
  const member = await openMember(t, { environment: screens.environment });
  const uri = janus.uri(ROOM, { camera: 'card:5', pin: 'a pin' });
  assert.deepEqual(await member.does('join', uri, { endpointName: 'Ada' }), { connected: true });
  await page.getByRole('button', { name: 'Present', exact: true }).click();
  const green = yuvOf('#20c040');
  await member.does('shows', CONTENT, [
    { at: [0.2, 0.2], yuv: green },
    { at: [0.8, 0.8], yuv: green },
  ]);
  await member.does('knows', 'Grace', { presenting: true });
  await member.does('call', 'requestContentShareToken');
  await member.does('seen', 'screenShareStatus', { status: 'token_denied' });
  await page.getByRole('button', { name: 'Stop presenting' }).click();
  await member.does('seen', 'streamRemoved', CONTENT);

  await member.does('call', 'requestContentShareToken');
  await member.does('seen', 'screenShareStatus', { status: 'token_granted' });
  await page.getByRole('button', { name: 'Present', exact: true }).click();
  await page.getByText('Not presented: somebody else presents').waitFor();
  await member.does('call', 'startPresentation', { type: 'screen' });
  const shown = await shownColour(await shownVideo(page, 'Ada presents'));
  for (const [index, wanted] of [0xc0, 0x20, 0x20].entries()) {
    assert.ok(Math.abs(shown[index] - wanted) <= 8, `${shown}`);
  }
  await member.does('call', 'stopPresentation');
  await page.locator('figure', { hasText: 'Ada presents' }).waitFor({ state: 'detached' });
});
