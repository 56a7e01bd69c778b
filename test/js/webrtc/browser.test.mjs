// A browser, with nothing but its own WebRTC, in a room of a real SFU together with the engine.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { sfuToken } from '../../../examples/operating/sfu_token.mjs';
import { guestLink, servePage } from '../../../examples/sfu/guest_page.mjs';
import { writeCardClip } from '../../support/card_clip.mjs';
import { PATIENCE_MS, openBrowser } from '../../support/meeting_app/browser.mjs';
import { SECRETS, runExample, startConfiguredSfu } from '../../support/operating.mjs';
import { remote } from '../../support/streams.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const CARD_CODE = readFileSync(new URL('../../support/card_code.mjs', import.meta.url), 'utf8');
const ROOM = 'meeting';

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
  await page.goto(guestLink(pageServer, janus, ROOM, access));
  await page.getByLabel('Your name').fill('Grace');
  await page.getByRole('button', { name: 'Join' }).click();
  return page;
}

// The detail of the test card that the others' only video shows, in the page.
const shownDetail = (page) =>
  page.evaluate(async (source) => {
    const module = new Blob([source], { type: 'text/javascript' });
    const { readCard } = await import(URL.createObjectURL(module));
    const video = document.querySelector('[id^="feed-"] video');
    await new Promise((resolve) => video.requestVideoFrameCallback(resolve));
    const { videoWidth: width, videoHeight: height } = video;
    const context = new OffscreenCanvas(width, height).getContext('2d');
    context.drawImage(video, 0, 0);
    const { data } = context.getImageData(0, 0, width, height);
    const yPlaneBuffer = Uint8Array.from({ length: width * height }, (_, i) => data[4 * i + 1]);
    return readCard({ width, height, yPlaneBuffer, yPlaneBufferStride: width })?.detail;
  }, CARD_CODE);

for (const videocodec of ['vp8', 'h264']) {
  test(`a browser and a process see each other in a room of ${videocodec}`, async (t) => {
    const janus = await startServer(t, { rooms: { [ROOM]: { videocodec } } });
    const clip = path.join(temporaryDirectory(t), 'camera.y4m');
    writeCardClip(clip, { width: 640, height: 360, detail: 77 });
    const page = await openGuest(t, janus, [
      '--use-fake-ui-for-media-stream',
      '--use-fake-device-for-media-stream',
      `--use-file-for-fake-video-capture=${clip}`,
    ]);
    await page.getByText('In the room.', { exact: true }).waitFor();
    const member = await openMember(t);
    const uri = janus.uri(ROOM, { camera: 'card:5', microphone: 'tone:440' });
    assert.deepEqual(await member.does('join', uri, { endpointName: 'Ada' }), { connected: true });

    await page.getByText('Ada').waitFor();
    await page.waitForFunction(() => document.querySelector('[id^="feed-"] video')?.videoWidth > 0);
    assert.equal(await shownDetail(page), 5);
    const { card } = await member.does('picture', remote(0));
    assert.equal(card?.detail, 77);

    const { stream } = await member.does('knows', 'Grace');
    assert.deepEqual(stream, remote(0));

    await page.getByRole('button', { name: 'Leave' }).click();
    await member.does('seen', 'streamRemoved', remote(0));
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
  assert.deepEqual(await member.does('join', janus.uri(ROOM, { camera: 'card:5', token })), {
    connected: true,
  });
  await page.waitForFunction(() => document.querySelector('[id^="feed-"] video')?.videoWidth > 0);
  assert.equal(await shownDetail(page), 5);
  const { width, height, card } = await member.does('picture', remote(0));
  assert.equal(card, null);
  assert.equal(width / height, 640 / 360);
});
