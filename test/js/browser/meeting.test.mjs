// The meeting application as a person has it: its page in a browser.

import assert from 'node:assert/strict';
import { mkdirSync } from 'node:fs';
import path from 'node:path';
import { before, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { startMeetingApp } from '../../support/meeting_app/meeting_app.mjs';
import { openBrowser } from '../../support/meeting_app/browser.mjs';
import { cardIn, logged, openPage, tile } from '../../support/meeting_app/meeting_page.mjs';

const root = fileURLToPath(new URL('../../..', import.meta.url));

let browser;
before(async (t) => {
  browser = await openBrowser(t);
});

// Ten pictures a second: the browser draws on the processor.
async function openMeeting(t, uri, options) {
  const app = await startMeetingApp(t, `${uri}&fps=10`);
  const opened = await openPage(t, browser, app.address, options);
  return { ...app, ...opened };
}

const waitForExactly = (locator, text) =>
  locator.filter({ hasText: new RegExp(`^${text}$`) }).waitFor();

const waitForText = (page, selector, text) =>
  page.locator(selector).filter({ hasText: text }).waitFor({ state: 'attached' });

// In the page: how much the words of `shown` stand out from its own background, as the Web Content
// Accessibility Guidelines count it.
function contrastOf(shown) {
  const luminance = (colour) => {
    const [red, green, blue] = colour.match(/\d+/g).map((part) => {
      const share = part / 255;
      return share <= 0.04045 ? share / 12.92 : ((share + 0.055) / 1.055) ** 2.4;
    });
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
  };
  const { color, backgroundColor } = getComputedStyle(shown);
  const [dark, light] = [color, backgroundColor].map(luminance).sort((one, other) => one - other);
  return (light + 0.05) / (dark + 0.05);
}

// The controls that can be used.
const enabled = (page) =>
  page.locator('nav button:enabled').evaluateAll((buttons) => buttons.map(({ id }) => id));

const focusIsOn = (page, selector) =>
  page.waitForFunction((wanted) => document.activeElement.matches(wanted), selector);

test('every tile shows its own stream, named, and moves', async (t) => {
  const uri = 'tessel:test?participants=2&name=0:Ada%20Lovelace,1:Zo%C3%AB';
  const { page, errors } = await openMeeting(t, uri);
  for (const [name, title, type, streamIndex] of [
    ['remote-0', 'Ada Lovelace', 'remote', 0],
    ['remote-1', 'Zoë', 'remote', 1],
    ['local-0', 'You', 'local', 0],
  ]) {
    const card = await cardIn(page, name);
    assert.deepEqual([card.type, card.streamIndex], [type, streamIndex]);
    await cardIn(page, name, ({ number }) => number > card.number);
    assert.equal(await tile(page, name).locator('.label b').textContent(), title);
    await page.locator(`#people label[aria-label="Show ${title}"]`).waitFor({ state: 'attached' });
  }
  assert.equal(await page.locator('#call').textContent(), 'You and 2 others');
  assert.deepEqual(errors, []);
});

test('a new participant gets a tile, and the tile of one who leaves is removed', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1&come=1@0.5&leave=0@1.5');
  await cardIn(page, 'remote-1');
  await tile(page, 'remote-0').waitFor({ state: 'detached' });
  await waitForText(page, '#call', 'You and 1 other');
});

test('the tiles of speaking participants are marked', async (t) => {
  const speaking = 'me@0-86400,1@0-86400';
  const { page } = await openMeeting(t, `tessel:test?participants=2&speak=${speaking}`);
  await page.locator('.tile.speaking[data-stream="remote-1"]').waitFor();
  await page.locator('.tile.speaking[data-stream="local-0"]').waitFor();
  assert.equal(await page.locator('.tile.speaking').count(), 2);
  await page.click('#mute');
  await page.locator('.tile:not(.speaking)[data-stream="local-0"]').waitFor();
});

test('muting and unmuting the microphone reaches the meeting and is shown', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1&speak=me@0-600');
  const level = page.locator('#mute meter');
  const heard = () => level.evaluate((meter) => meter.value > 0);
  await page.waitForFunction(() => document.querySelector('#mute meter').value > 0);

  await page.click('#mute');
  await waitForText(page, '#mute', 'Unmute');
  assert.deepEqual(await logged(page, 'mediaMuteState'), ['mediaType audio · muted true']);
  await page.waitForFunction(() => document.querySelector('#mute meter').value === 0);
  assert.equal(await heard(), false);

  await page.keyboard.press('m');
  const log = await logged(page, 'mediaMuteState', 2);
  assert.equal(log[0], 'mediaType audio · muted false');
  await page.waitForFunction(() => document.querySelector('#mute meter').value > 0);
});

test('the camera is switched off and on, and a newly plugged one can be selected', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1&plug=microphone-2@0');
  assert.equal((await cardIn(page, 'local-0')).detail, 0);
  await page.keyboard.press('v');
  await waitForText(page, '.tile[data-stream="local-0"]:not(.live) .face', 'Your camera is off');
  await page.keyboard.press('v');
  await cardIn(page, 'local-0');

  await page.click('#devices-menu');
  await page.selectOption('select[name=camera]', 'camera-1');
  const card = await cardIn(page, 'local-0', ({ detail }) => detail === 1);
  assert.equal(card.type, 'local');
  await logged(page, 'deviceChange');
  const absent = await page.locator('#device-choice option:disabled').allTextContents();
  assert.deepEqual(absent, ['Camera 3 (not plugged in)', 'Speaker 3 (not plugged in)']);
});

test('a monitor is selected on a map of the monitors and shared until it is stopped', async (t) => {
  const monitors = '1280x720@0:0,1920x1080@1280:-360,1080x1920@-1080:0';
  const { page } = await openMeeting(t, `tessel:test?participants=1&monitors=${monitors}`);
  await cardIn(page, 'remote-0');
  await page.keyboard.press('s');
  const boxes = await page
    .locator('#monitors label')
    .evaluateAll((labels) => labels.map((label) => label.getBoundingClientRect().toJSON()));
  assert.equal(boxes.length, 3);
  const [first, second, third] = boxes;
  const scale = first.width / 1280;
  const near = (actual, expected, what) =>
    assert.ok(Math.abs(actual - expected * scale) < 1, `${what}: ${actual / scale}, ${expected}`);
  near(second.width, 1920, 'width of the second');
  near(second.x - first.x, 1280, 'left of the second');
  near(second.y - first.y, -360, 'top of the second');
  near(third.height, 1920, 'height of the third');
  near(third.x - first.x, -1080, 'left of the third');

  await page.locator('#monitors label').nth(1).click();
  await page.click('#share-dialog button.primary');
  const screenTwo = (1 << 22) | 1;
  const card = await cardIn(page, 'content-0');
  assert.deepEqual([card.type, card.detail], ['content', screenTwo]);
  await waitForText(page, '#sharing', 'You share Screen 2');
  const widths = await page
    .locator('.tile')
    .evaluateAll((tiles) => tiles.map(({ dataset, offsetWidth }) => [dataset.stream, offsetWidth]));
  const [largest] = widths.sort(([, one], [, other]) => other - one);
  assert.equal(largest[0], 'content-0');

  await page.keyboard.press('s');
  await tile(page, 'content-0').waitFor({ state: 'detached' });
  await page.locator('#sharing').waitFor({ state: 'hidden' });
  const statuses = await logged(page, 'screenShareStatus', 4);
  assert.deepEqual(statuses.reverse(), [
    'status token_granted',
    'status started',
    'status stopped',
    'status token_relinquished',
  ]);
});

test('sharing while somebody else presents is refused with the reason', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1&present=0@0');
  const { detail } = await cardIn(page, 'content-0');
  assert.equal(detail, 0);
  await page.keyboard.press('s');
  await page.click('#share-dialog button.primary');
  await waitForText(page, '#notice', 'Somebody else is presenting.');
});

test('Enter starts the share, and Cancel does not', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1');
  await cardIn(page, 'remote-0');
  await page.keyboard.press('s');
  await page.locator('#share-dialog >> text=Cancel').evaluate((cancel) => {
    cancel.focus();
    cancel.click();
    // The key arrives before the browser has removed the focus from the hidden element.
    document.activeElement.dispatchEvent(new KeyboardEvent('keydown', { key: 's', bubbles: true }));
  });
  await page.keyboard.press('Enter');
  await cardIn(page, 'content-0');
  // The one that was cancelled has asked for nothing.
  assert.deepEqual((await logged(page, 'screenShareStatus', 2)).reverse(), [
    'status token_granted',
    'status started',
  ]);
});

for (const mode of ['grid', 'focus']) {
  test(`after a share the arrangement "${mode}" is restored`, async (t) => {
    const { page } = await openMeeting(t, 'tessel:test?participants=2');
    await cardIn(page, 'remote-0');
    const arrangement = () => page.locator('input[name=mode]:checked').inputValue();
    if (mode === 'focus') {
      await page.click('#layout-menu');
      await page.click('text=One large');
      await page.keyboard.press('Escape');
    }
    assert.equal(await arrangement(), mode);
    await page.keyboard.press('s');
    await page.click('#share-dialog button.primary');
    await tile(page, 'content-0').waitFor();
    assert.equal(await arrangement(), 'focus');
    await page.locator('#sharing').waitFor();
    await page.keyboard.press('s');
    await tile(page, 'content-0').waitFor({ state: 'detached' });
    assert.equal(await arrangement(), mode);
  });
}

test('the layout decides which streams arrive and how large', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=3&name=0:Ada');
  const before = await cardIn(page, 'remote-0');

  await page.click('#layout-menu');
  await page.selectOption('select[name=quality]', '90');
  const isSmall = ({ width, height }) => width === 160 && height === 90;
  for (const name of ['remote-0', 'remote-1', 'remote-2']) await cardIn(page, name, isSmall);

  await page.selectOption('select[name=quality]', '720');
  const large = await cardIn(page, 'remote-0', ({ height }) => height === 720);
  assert.ok(large.number > before.number);

  await page.selectOption('select[name=quality]', '0');
  await page.click('text=One large');
  // The large tile is 341 to 720 pixels high, the small ones 46 to 180.
  await cardIn(page, 'remote-0', ({ height }) => height === 360 || height === 720);
  await cardIn(page, 'remote-1', ({ height }) => height === 90 || height === 180);

  await page.selectOption('select[name=most]', '1');
  await tile(page, 'remote-1').waitFor({ state: 'detached' });
  await page.keyboard.press('Escape');
  await page.keyboard.press('p');
  await page.click('#statistics-tab');
  // Only what is asked for is received.
  await page.waitForFunction(() => {
    const rows = [...document.querySelectorAll('#statistics tbody tr')];
    const received = rows.filter((row) => Number(row.cells[2].textContent) > 0);
    return received.map((row) => row.cells[0].textContent).join() === 'Ada';
  });
});

test('a tile moves into a window of the widget process, survives the death of that process, and moves back', async (t) => {
  const { page, context } = await openMeeting(t, 'tessel:test?participants=2');
  await cardIn(page, 'remote-1');
  const shortcutsOf = (name) => tile(page, name).getAttribute('aria-keyshortcuts');
  const [started] = await logged(page, 'widgetListening');
  const pid = Number(/^pid (\d+)$/.exec(started)[1]);

  const opening = context.waitForEvent('page');
  await tile(page, 'remote-1').focus();
  await page.keyboard.press('o');
  const popup = await opening;
  const first = await cardIn(popup, 'remote-1');
  assert.deepEqual([first.type, first.streamIndex], ['remote', 1]);
  await cardIn(popup, 'remote-1', ({ number }) => number > first.number);
  assert.notEqual(new URL(popup.url()).origin, new URL(page.url()).origin);
  await waitForText(
    page,
    '.tile[data-stream="remote-1"]:not(.live) .face',
    'In a window of its own',
  );
  const popOut = tile(page, 'remote-1').locator('[aria-label="Show it in a window of its own"]');
  assert.equal(await popOut.evaluate(({ hidden }) => hidden), true);
  assert.equal(await shortcutsOf('remote-1'), 'Enter H');
  assert.equal(await shortcutsOf('remote-0'), 'Enter O H');

  process.kill(pid, 'SIGKILL');
  const processes = await logged(page, 'widgetListening', 2);
  assert.notEqual(processes[0], started);
  // Its window shows frames of after the death; one from before it may still have been on its way.
  const last = await cardIn(popup, 'remote-1');
  const again = await cardIn(popup, 'remote-1', ({ number }) => number > last.number);
  await cardIn(popup, 'remote-1', ({ number }) => number > again.number);

  await popup.close();
  await cardIn(page, 'remote-1', ({ number }) => number > again.number);
});

test('a window shows that its tile was moved back, and that its stream has ended', async (t) => {
  const { page, context } = await openMeeting(t, 'tessel:test?participants=1');
  await cardIn(page, 'remote-0');
  await logged(page, 'widgetListening');
  const popOut = async () => {
    const opening = context.waitForEvent('page');
    await tile(page, 'remote-0').focus();
    await page.keyboard.press('o');
    const popup = await opening;
    await cardIn(popup, 'remote-0');
    return popup;
  };
  const popup = await popOut();
  const bringBack = tile(page, 'remote-0').locator('text=Bring it back');
  const contrast = await bringBack.evaluate(contrastOf);
  assert.ok(contrast >= 4.5, `contrast of its words: ${contrast}`);
  await bringBack.click();
  await waitForText(popup, '.tile:not(.live) .face', 'This picture is back in the meeting.');
  await cardIn(page, 'remote-0');
  await popup.close();

  const second = await popOut();
  await page.click('#leave-call');
  await waitForText(second, '.tile:not(.live) .face', 'This picture is back in the meeting.');
});

test('leaving removes all tiles, and joining again adds them', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1');
  await cardIn(page, 'remote-0');
  await page.click('#leave-call');
  await waitForText(page, '.curtain', 'You left the meeting.');
  assert.equal(await page.locator('.tile').count(), 0);
  await page.click('text=Join again');
  await cardIn(page, 'remote-0');
});

test('after leaving, controls that need a meeting are disabled and look disabled', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1');
  await cardIn(page, 'remote-0');
  const all = await enabled(page);
  const opacity = () =>
    page.locator('#leave-call').evaluate((button) => Number(getComputedStyle(button).opacity));
  assert.equal(await opacity(), 1);
  await page.click('#leave-call');
  await waitForText(page, '.curtain', 'You left the meeting.');
  assert.deepEqual(await enabled(page), ['layout-menu', 'devices-menu', 'panel-switch']);
  await page.waitForFunction(
    () => getComputedStyle(document.querySelector('#leave-call')).opacity < 0.5,
  );
  await page.click('text=Join again');
  await cardIn(page, 'remote-0');
  assert.deepEqual(await enabled(page), all);
});

test('the focus moves from Leave to Join again, and from there to the stage', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1');
  await cardIn(page, 'remote-0');
  await page.focus('#leave-call');
  await page.keyboard.press('Enter');
  await focusIsOn(page, '.curtain button');
  await page.keyboard.press('Enter');
  await cardIn(page, 'remote-0');
  await focusIsOn(page, '#stage');
});

test('a tile keeps the focus during the meeting, and the stage gets it when the tile is removed', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=2');
  await cardIn(page, 'remote-1');
  const focused = '.tile[data-stream="remote-1"]';
  await page.focus(focused);
  // It goes to the first place, and then others change around it.
  await page.keyboard.press('Enter');
  await page.waitForFunction((wanted) => {
    const [first] = document.querySelectorAll('.tile');
    return first.matches(wanted) && document.activeElement === first;
  }, focused);
  await page.keyboard.press('v');
  await waitForText(page, '.tile[data-stream="local-0"] .face', 'Your camera is off');
  await page.keyboard.press('s');
  await page.click('#share-dialog button.primary');
  await cardIn(page, 'content-0');
  await page.locator('#sharing').waitFor();
  await page.focus(focused);
  await page.keyboard.press('s');
  await tile(page, 'content-0').waitFor({ state: 'detached' });
  await focusIsOn(page, focused);
  await page.keyboard.press('h');
  await focusIsOn(page, '#stage');
});

test('Tab stops once at each tile, and the pointer reveals its controls', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=2');
  await cardIn(page, 'remote-1');
  await page.focus('.tile');
  const stops = [];
  for (let stop = 0; stop < 3; ++stop) {
    stops.push(await page.evaluate(() => document.activeElement.dataset.stream));
    await page.keyboard.press('Tab');
  }
  assert.deepEqual(stops, ['remote-0', 'remote-1', 'local-0']);
  await tile(page, 'remote-0').hover();
  await tile(page, 'remote-0').getByRole('button', { name: 'Hide it' }).click();
  await tile(page, 'remote-0').waitFor({ state: 'detached' });
});

test('a menu that is opened by a key gets the focus, and its button gets it back', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1');
  await cardIn(page, 'remote-0');
  await page.keyboard.press('l');
  await focusIsOn(page, '#layout-choice input:checked');
  await page.keyboard.press('Escape');
  await focusIsOn(page, '#layout-menu');
  await page.keyboard.press('d');
  await focusIsOn(page, '#device-choice select');
});

test('the details panel is closed on a narrow page, and closes when the page becomes narrow', async (t) => {
  const options = { viewport: { width: 700, height: 560 } };
  const { page, address } = await openMeeting(t, 'tessel:test?participants=1', options);
  await cardIn(page, 'remote-0');
  assert.equal(await page.isVisible('#panel'), false);
  await page.click('#panel-switch');
  assert.equal(await page.isVisible('#panel'), true);

  const wide = await openPage(t, browser, address, { viewport: { width: 1200, height: 560 } });
  await wide.page.locator('#panel').waitFor();
  await wide.page.setViewportSize(options.viewport);
  await wide.page.locator('#panel').waitFor({ state: 'hidden' });
});

test('a switch has its action as its accessible name, without its meter and without a pressed state', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1&speak=me@0-600');
  await page.waitForFunction(() => document.querySelector('#mute meter').value > 0);
  for (const [id, ...names] of [
    ['mute', 'Mute', 'Unmute'],
    ['camera-switch', 'Stop video', 'Start video'],
    ['speaker-switch', 'Mute speaker', 'Unmute speaker'],
  ]) {
    const button = page.locator(`#${id}`);
    for (const name of [...names, names[0]]) {
      await page
        .locator(`#${id}`)
        .and(page.getByRole('button', { name, exact: true }))
        .waitFor();
      assert.equal(await button.getAttribute('aria-pressed'), null);
      await button.click();
    }
  }
});

test('a refused join is shown with its reason, and not as the end of a meeting', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?refuse=403');
  await waitForExactly(page.locator('.curtain p'), 'You could not join.');
  await waitForText(page, '.curtain', 'the meeting refused the join (403)');
});

test('joining can be cancelled and repeated', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?join=3600');
  const cancel = page.locator('#leave-call:enabled').filter({ hasText: 'Cancel' });
  await cancel.click();
  await waitForExactly(page.locator('.curtain p'), 'You did not join.');
  await page.locator('#leave-call:disabled').filter({ hasText: 'Leave' }).waitFor();
  await focusIsOn(page, '.curtain button');
  await page.keyboard.press('Enter');
  await waitForText(page, '#call', 'Joining…');
  await cancel.waitFor();
});

test('a second page takes the meeting over, and the first one shows that, is disabled and can take it back', async (t) => {
  const { page, address } = await openMeeting(t, 'tessel:test?participants=1');
  await cardIn(page, 'remote-0');
  await page.keyboard.press('p');
  await page.locator('#panel').waitFor();
  const second = await openPage(t, browser, address);
  await cardIn(second.page, 'remote-0');
  await waitForText(page, '.curtain', 'The meeting is shown by another page.');
  assert.equal(await page.locator('.tile').count(), 0);
  assert.deepEqual(await enabled(page), ['panel-switch']);
  assert.equal(await page.isVisible('#panel'), false);
  await page.click('text=Show it here');
  await cardIn(page, 'remote-0');
  await waitForText(second.page, '.curtain', 'The meeting is shown by another page.');
});

test('a reloaded page shows the meeting in its present state', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=1');
  await page.click('#mute');
  await waitForText(page, '#mute', 'Unmute');
  await page.reload();
  await cardIn(page, 'remote-0');
  await waitForText(page, '#mute', 'Unmute');
});

test('SIGINT ends both processes, and the page reports it after some attempts', async (t) => {
  const { page, child, exit } = await openMeeting(t, 'tessel:test?participants=1');
  await cardIn(page, 'remote-0');
  const [started] = await logged(page, 'widgetStarted');
  const tries = [];
  page.on('websocket', (socket) => tries.push(socket));
  child.kill('SIGINT');
  assert.deepEqual(await exit, [0, null]);
  await waitForText(page, '#call', 'Connecting…');
  await waitForText(page, '.curtain', 'The meeting’s program has ended.');
  assert.equal(tries.length, 3);
  assert.equal(await page.locator('.tile').count(), 0);
  assert.deepEqual(await enabled(page), ['panel-switch']);
  assert.match(started, /^pid \d+$/);
});

test('a meeting of twelve is drawn for the documentation', async (t) => {
  const { page } = await openMeeting(t, 'tessel:test?participants=11&size=640x360', {
    viewport: { width: 1440, height: 860 },
  });
  await page.locator('.tile.live').nth(11).waitFor();
  await page.click('#statistics-tab');
  await page.locator('#statistics tbody tr').nth(10).waitFor();
  const isAsked = Boolean(process.env.TESSEL_WRITE_SCREENSHOT);
  // So that there is something to see in the plots.
  if (isAsked) await cardIn(page, 'remote-0', ({ number }) => number > 1500);
  const folder = isAsked ? 'docs/images' : 'build';
  mkdirSync(path.join(root, folder), { recursive: true });
  const picture = await page.screenshot({ path: path.join(root, folder, 'meeting.png') });
  assert.ok(picture.length > 10_000);
});
