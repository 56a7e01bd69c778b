// Two example applications in a room of a real SFU, each with its page in a browser.

import assert from 'node:assert/strict';
import path from 'node:path';
import { before, test } from 'node:test';

import { build } from '../../support/build.mjs';
import { openBrowser } from '../../support/meeting_app/browser.mjs';
import { startMeetingApp } from '../../support/meeting_app/meeting_app.mjs';
import { cardIn, openPage, tile } from '../../support/meeting_app/meeting_page.mjs';
import { startServer } from '../../support/webrtc_room.mjs';

// The build under test, no sound server and no camera server.
const ENVIRONMENT = {
  TESSEL_WRAPPER_ADDON: path.join(build, 'webrtc', 'tesselWrapper.node'),
  PULSE_SERVER: 'unix:/nowhere',
  XDG_RUNTIME_DIR: '/nowhere',
};

let browser;
before(async (t) => {
  browser = await openBrowser(t);
});

async function openApp(t, server, name, parameters) {
  const uri = server.uri('meeting', { ...parameters, microphone: `tone:440` });
  const options = ['--name', name];
  const app = await startMeetingApp(t, uri, { options, environment: ENVIRONMENT });
  return { ...app, ...(await openPage(t, browser, app.address)) };
}

test('two applications show the video, name, speech and mutes of each other', async (t) => {
  const server = await startServer(t, { rooms: { meeting: {} } });
  // On a machine without a camera.
  const ada = await openApp(t, server, 'Ada', {});
  const zoe = await openApp(t, server, 'Zoë', { camera: 'card:22' });
  for (const [{ page }, own, other, name] of [
    [ada, 0, 22, 'Zoë'],
    [zoe, 22, 0, 'Ada'],
  ]) {
    const shown = await cardIn(page, 'remote-0');
    assert.equal(shown.detail, other);
    await cardIn(page, 'remote-0', ({ number }) => number > shown.number);
    assert.equal((await cardIn(page, 'local-0')).detail, own);
    await tile(page, 'remote-0').locator('.label b').filter({ hasText: name }).waitFor();
    await page.locator('.tile.speaking[data-stream="remote-0"]').waitFor();
    await page
      .locator('#call')
      .filter({ hasText: /^You and 1 other$/ })
      .waitFor();
    assert.equal(await page.locator('#devices-menu').isDisabled(), true);
  }

  assert.equal(await ada.page.locator('#hint').textContent(), 'No camera: a test card is sent');
  assert.equal(await zoe.page.locator('#hint').textContent(), '');

  await ada.page.click('#mute');
  await zoe.page.locator('.tile:not(.speaking)[data-stream="remote-0"]').waitFor();
  await ada.page.click('#camera-switch');
  await zoe.page.locator('.tile:not(.live)[data-stream="remote-0"]').waitFor();
  await ada.page.click('#leave-call');
  await tile(zoe.page, 'remote-0').waitFor({ state: 'detached' });
  assert.deepEqual([...ada.errors, ...zoe.errors], []);
});
