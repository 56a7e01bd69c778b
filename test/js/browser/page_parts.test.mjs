// Parts of the meeting's page by themselves, and what it makes of what a meeting tells it.

import assert from 'node:assert/strict';
import { EventEmitter, once } from 'node:events';
import { writeFileSync } from 'node:fs';
import path from 'node:path';
import { before, test } from 'node:test';

import { pageFiles } from '../../../examples/meeting/page_files.mjs';
import { PageServer } from '../../../examples/meeting/page_server.mjs';
import { PageSession } from '../../../examples/meeting/page_session.mjs';
import { openRoom, stateIs } from '../../support/meeting_app/open_room.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { PATIENCE_MS, openBrowser } from '../../support/meeting_app/browser.mjs';

let browser;
let address;
before(async (t) => {
  browser = await openBrowser(t);
  const document = path.join(temporaryDirectory(t), 'empty.html');
  writeFileSync(document, '<!doctype html><title>test</title><link rel="icon" href="data:,">');
  address = await serve(t, { ...pageFiles('meeting.html'), '': document }, () => {});
});

// The address of a page that is served until the test ends.
async function serve(t, files, onConnection) {
  const server = new PageServer({ files, onConnection });
  await server.listen();
  t.after(() => server.close());
  return server.address;
}

// In the page: its Tile, DrawLoop, Stage, PeopleList, Charts and Connection, a picture, one that
// cannot be drawn, and a promise of the next paint.
async function partsOf() {
  const load = (name) => import(new URL(`page/${name}.mjs`, location.href));
  const plane = (letter, width, height) => ({
    [`${letter}PlaneBuffer`]: new Uint8Array(width * height),
    [`${letter}PlaneBufferStride`]: width,
  });
  const planes = { ...plane('y', 4, 2), ...plane('u', 2, 1), ...plane('v', 2, 1) };
  return {
    ...(await load('tile')),
    ...(await load('stage')),
    ...(await load('people_list')),
    ...(await load('charts')),
    ...(await load('connection')),
    picture: { width: 4, height: 2, ...planes },
    broken: { width: 400, height: 2, ...planes },
    painted: () => new Promise((resolve) => requestAnimationFrame(resolve)),
  };
}

// Settles with what `act` answers to the parts in a page that is empty.
async function inPage(t, act) {
  const page = await browser.newPage();
  page.setDefaultTimeout(PATIENCE_MS);
  t.after(() => page.close());
  await page.goto(address);
  const parts = await page.evaluateHandle(partsOf);
  return parts.evaluate(act);
}

test('a tile that is removed before its first frame is drawn takes no WebGL context', async (t) => {
  const drawnOn = await inPage(t, async ({ Tile, DrawLoop, picture, painted }) => {
    const canvases = new Set();
    const { getContext } = HTMLCanvasElement.prototype;
    HTMLCanvasElement.prototype.getContext = function (...args) {
      canvases.add(this);
      return getContext.apply(this, args);
    };
    const loop = new DrawLoop(() => {});
    const [removed, kept] = ['remote-0', 'remote-1'].map((name) => new Tile(name, name));
    for (const tile of [removed, kept]) loop.take(tile, picture);
    removed.remove();
    await painted();
    return canvases.size;
  });
  assert.equal(drawnOn, 1);
});

test('a picture that cannot be drawn is reported, and delays no other tile', async (t) => {
  const answer = await inPage(t, async ({ Tile, DrawLoop, picture, broken, painted }) => {
    const errors = [];
    addEventListener('error', (event) => {
      event.preventDefault();
      errors.push(event.error.name);
    });
    const drawn = [];
    const loop = new DrawLoop((names) => drawn.push(...names));
    const tiles = ['remote-0', 'remote-1'].map((name) => new Tile(name, name));
    loop.take(tiles[0], broken);
    loop.take(tiles[1], picture);
    await painted();
    return { errors, drawn, sizes: tiles.map(({ size }) => size) };
  });
  assert.deepEqual(answer, {
    errors: ['RangeError'],
    drawn: ['remote-0', 'remote-1'],
    sizes: ['', '4×2'],
  });
});

test('the frame of a removed tile is not waited for', async (t) => {
  const sent = await inPage(t, ({ Stage, picture }) => {
    const requests = [];
    const connection = new EventTarget();
    connection.send = (...request) => requests.push(request);
    const root = document.body.appendChild(document.createElement('main'));
    new Stage(root, connection);
    const detail = { name: 'remote-0', frame: picture };
    connection.dispatchEvent(new CustomEvent('frame', { detail }));
    return requests;
  });
  assert.deepEqual(sent, [['drawn', { streams: ['remote-0'] }]]);
});

test('the list ticks whom the user wants to see, with or without a tile, present or not', async (t) => {
  const answers = await inPage(t, ({ Stage, PeopleList }) => {
    const connection = new EventTarget();
    connection.send = () => {};
    const root = document.body.appendChild(document.createElement('main'));
    const stage = new Stage(root, connection);
    const list = document.body.appendChild(document.createElement('section'));
    const people = new PeopleList(list, stage);
    const streams = [0, 1].map((streamIndex) => ({
      ...{ type: 'remote', streamIndex, csrc: streamIndex, name: `remote-${streamIndex}` },
      ...{ title: `Guest ${streamIndex}`, isSending: true, inWindow: false },
    }));
    const tell = (phase) => {
      stage.update({ streams, call: { phase }, local: {} });
      people.update(streams);
    };
    const row = () => [
      list.querySelectorAll('input')[1].checked,
      list.querySelectorAll('small')[1].textContent,
      root.querySelectorAll('.tile').length,
    ];
    const untick = () => list.querySelectorAll('input')[1].click();
    tell('joined');
    people.describe(new Map([['remote-1', '320×180']]));
    return [
      row,
      () => stage.choose({ most: 1 }),
      untick,
      () => stage.choose({ most: 12 }),
      untick,
      () => tell('left'),
      untick,
      untick,
      () => tell('joined'),
    ].map((act) => act() ?? row());
  });
  assert.deepEqual(answers, [
    [true, '320×180', 2],
    [true, 'no room for another tile', 1],
    [false, '320×180', 1],
    [false, '320×180', 1],
    [true, '320×180', 2],
    [true, '320×180', 0],
    [false, '320×180', 0],
    [true, '320×180', 0],
    [true, '320×180', 2],
  ]);
});

test('a plot has its last values as its accessible text', async (t) => {
  const names = await inPage(t, async ({ Charts, painted }) => {
    const root = document.body.appendChild(document.createElement('div'));
    const charts = new Charts(root, document.createElement('tbody'));
    while (!root.querySelector('canvas')) await painted();
    const meetingStats = {
      ...{ total_inbound_bps: 2_340_000, total_outbound_bps: 1_000_000 },
      ...{ instant_inbound_loss: 0.012, instant_outbound_loss: 0 },
      ...{ process_cpu: 12.34, system_cpu: 50 },
    };
    charts.add({ time: 1, meetingStats, video_recv_stats: [{ fps: 30 }, { fps: 15 }] }, new Map());
    return Array.from(root.querySelectorAll('[role=img]'), ({ ariaLabel }) => ariaLabel);
  });
  assert.deepEqual(names, [
    'Bit rate, Mbit/s: received 2.3, sent 1.0',
    'Frames received per second: all streams 45.0',
    'Packets lost, %: received 1.2, sent 0.0',
    'Processor, %: meeting 12.3, whole system 50.0',
  ]);
});

test('a lost connection is retried with growing delays, which restart once it was open, and not for ever', async (t) => {
  const { waits, told } = await inPage(t, async ({ Connection }) => {
    const answers = [...'ccoccccccc'].map((first) =>
      first === 'o' ? ['open', 'close'] : ['close'],
    );
    window.WebSocket = class extends EventTarget {
      constructor() {
        super();
        queueMicrotask(() => {
          for (const name of answers.shift()) this.dispatchEvent(new Event(name));
        });
      }
    };
    const waits = [];
    window.setTimeout = (act, wait) => {
      waits.push(wait);
      queueMicrotask(act);
    };
    const connection = new Connection({ mostTries: 6 });
    const told = [];
    for (const name of ['open', 'closed', 'lost']) {
      connection.addEventListener(name, () => told.push(name));
    }
    await new Promise((resolve) => connection.addEventListener('lost', resolve));
    return { waits, told: told.join() };
  });
  assert.deepEqual(waits, [300, 600, 300, 600, 1200, 2400, 4800, 5000]);
  assert.equal(told, `closed,closed,open${',closed'.repeat(6)},lost`);
});

test('a window whose process does not return shows that in the end', async (t) => {
  const page = await browser.newPage();
  page.setDefaultTimeout(PATIENCE_MS);
  t.after(() => page.close());
  await page.addInitScript(() => {
    window.WebSocket = class extends EventTarget {
      constructor() {
        super();
        queueMicrotask(() => this.dispatchEvent(new Event('close')));
      }
    };
    window.setTimeout = queueMicrotask;
  });
  await page.goto(`${await serve(t, pageFiles('window.html'))}#remote-0/Amara`);
  await page.locator('.face >> text=This window gets no pictures any more.').waitFor();
});

// The meeting's page, whose sockets go to `onConnection`.
async function openPage(t, onConnection) {
  const page = await browser.newPage();
  page.setDefaultTimeout(PATIENCE_MS);
  t.after(() => page.close());
  await page.goto(await serve(t, pageFiles('meeting.html'), onConnection));
  return page;
}

test('controls that need the meeting are disabled until its state is known, and while it cannot be reached', async (t) => {
  const { room } = await openRoom(t, 'tessel:test?participants=0');
  await room.join();
  const arrived = new EventEmitter();
  const arriving = once(arrived, 'socket');
  const page = await openPage(t, (socket) => arrived.emit('socket', socket));
  const disabled = () =>
    page.locator('nav button:disabled').evaluateAll((all) => all.map(({ id }) => id));
  const all = ['mute', 'camera-switch', 'speaker-switch', 'share', 'leave-call'];
  assert.deepEqual(await disabled(), all);
  const [socket] = await arriving;
  new PageSession(socket, room);
  await page.locator('#mute:enabled').waitFor();
  assert.deepEqual(await disabled(), []);
  socket.terminate();
  await page.locator('#mute:disabled').waitFor();
  assert.deepEqual(await disabled(), all);
});

test('a page that is loaded after a refused share does not show the refusal', async (t) => {
  const { room } = await openRoom(t, 'tessel:test?participants=1&present=0@0');
  await room.join();
  await stateIs(room, ({ streams }) => streams.some(({ type }) => type === 'content'));
  await assert.rejects(room.commands.share({ what: { type: 'screen', screenId: 0 } }));
  assert.equal(room.state.share.phase, 'refused');
  const page = await openPage(t, (socket) => new PageSession(socket, room));
  await page.locator('#mute:enabled').waitFor();
  assert.equal(await page.isVisible('#notice'), false);
});

test('a share cannot be requested while another request is pending', async (t) => {
  const { room, meeting } = await openRoom(t, 'tessel:test?participants=0');
  await room.join();
  meeting.requestContentShareToken = () => new Promise(() => {});
  room.commands.share({ what: { type: 'screen', screenId: 0 } });
  const page = await openPage(t, (socket) => new PageSession(socket, room));
  await page.locator('#share:enabled').filter({ hasText: 'Asking…' }).waitFor();
  await page.keyboard.press('s');
  assert.equal(await page.isVisible('#share-dialog'), false);
});

// In the page: what reaches out of it, or out of the control or dialog that it is in.
function cutOff() {
  const isWithin = (inner, outer) => inner.left >= outer.left && inner.right <= outer.right;
  const parts = (selector, within) =>
    [...document.querySelectorAll(selector)].map((part) => [part, part.closest(within)]);
  return [
    ...parts('nav button', 'body'),
    ...parts('nav button svg', 'button'),
    ...parts('nav button span', 'button'),
    ...parts('#share-dialog[open]', 'body'),
    ...parts('#share-dialog[open] #monitors label', 'form'),
    ...parts('#share-dialog[open] #monitors small', 'label'),
  ]
    .filter(([part]) => part.checkVisibility())
    .filter(([part, whole]) => {
      const [inner, outer] = [part, whole].map((each) => each.getBoundingClientRect());
      return !isWithin(inner, outer);
    })
    .map(([part]) => `${part.tagName} ${part.textContent}`);
}

test('a narrow page cuts nothing off, and its controls keep their names', async (t) => {
  const monitors = '1280x720@0:0,1920x1080@1280:-360,1080x1920@-1080:0';
  const { room } = await openRoom(t, `tessel:test?participants=0&monitors=${monitors}`);
  await room.join();
  const page = await openPage(t, (socket) => new PageSession(socket, room));
  await page.locator('#mute:enabled').waitFor();
  for (const key of 'mva') await page.keyboard.press(key);
  const longest = page.getByRole('button', { name: 'Unmute speaker', exact: true });
  await longest.waitFor();
  for (const width of [960, 660, 640, 480, 400, 320]) {
    await page.setViewportSize({ width, height: 560 });
    assert.deepEqual(await page.evaluate(cutOff), [], `controls at ${width}`);
    assert.equal(await longest.count(), 1);
    await page.keyboard.press('s');
    await page.locator('#monitors label').nth(2).waitFor();
    assert.deepEqual(await page.evaluate(cutOff), [], `dialog at ${width}`);
    await page.keyboard.press('Escape');
    await page.locator('#share-dialog').waitFor({ state: 'hidden' });
  }
});

test('keyboard shortcuts work with Caps Lock too', async (t) => {
  const { room } = await openRoom(t, 'tessel:test?participants=0');
  await room.join();
  const page = await openPage(t, (socket) => new PageSession(socket, room));
  await page.locator('#mute:enabled').waitFor();
  await page.keyboard.press('M');
  await page.locator('#mute').filter({ hasText: 'Unmute' }).waitFor();
  await page.focus('.tile');
  await page.keyboard.press('H');
  await page.locator('.tile').waitFor({ state: 'detached' });
});
