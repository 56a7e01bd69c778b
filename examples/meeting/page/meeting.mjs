// The meeting's page.

import { Charts } from './charts.mjs';
import { Connection } from './connection.mjs';
import { element } from './elements.mjs';
import { EventList } from './event_list.mjs';
import { PeopleList } from './people_list.mjs';
import { ShareDialog } from './share_dialog.mjs';
import { Stage } from './stage.mjs';

const NOTICE_MS = 5000;
// The controls that need a meeting, except leaving it.
const CALL_CONTROLS = ['mute', 'camera-switch', 'speaker-switch', 'share'];

const byId = (id) => document.getElementById(id);

// The page is served as long as the program runs; another program has another address.
const connection = new Connection({ mostTries: 3 });
const stage = new Stage(byId('stage'), connection);
const people = new PeopleList(byId('people'), stage);
const charts = new Charts(byId('charts'), document.querySelector('#statistics tbody'));
const events = new EventList(document.querySelector('#events ol'));
const shareDialog = new ShareDialog(byId('share-dialog'), (what) =>
  connection.send('share', { what }),
);
let state;

// ---- Messages from the meeting

connection.addEventListener('words', ({ detail }) => {
  if (detail.state) showState(detail.state);
  if (detail.levels) showLevels(detail.levels);
  if (detail.history) charts.restart(detail.history);
  if (detail.statistics) showStatistics(detail.statistics);
  if (detail.log) events.add(detail.log);
});
connection.addEventListener('closed', () => {
  byId('call').textContent = 'Connecting…';
  enableCallControls(); // until the state is told again
  keepFocus();
});
connection.addEventListener('ended', ({ detail }) =>
  clear(
    detail,
    element('p', { textContent: detail }),
    element('button', {
      className: 'primary',
      textContent: 'Show it here',
      onclick: () => location.reload(),
    }),
  ),
);

connection.addEventListener('lost', () =>
  clear(
    'Not in the meeting',
    element('p', { textContent: 'The meeting’s program has ended.' }),
    element('small', { textContent: 'Start it again and open the address that it prints.' }),
  ),
);

// Removes everything that belongs to a meeting; `text` and the overlay's `children` say why.
function clear(text, ...children) {
  byId('call').textContent = text;
  byId('hint').textContent = '';
  byId('sharing').hidden = true;
  shareDialog.close();
  for (const menu of [layoutForm, deviceForm]) menu.hidePopover();
  for (const button of document.querySelectorAll('nav button')) {
    button.disabled = button.id !== 'panel-switch';
  }
  if (!isRoomy.matches) togglePanel(false); // it would cover the text
  stage.clear();
  people.update([]);
  stage.curtain = children;
  keepFocus();
}

function showState(next) {
  const before = state;
  state = next;
  const { call, local, share, streams } = state;
  const others = streams.filter(({ type }) => type === 'remote').length;
  byId('call').textContent = {
    joining: 'Joining…',
    joined: others === 1 ? 'You and 1 other' : `You and ${others} others`,
    left: 'Not in the meeting',
    notJoined: 'Not in the meeting',
  }[call.phase];
  byId('hint').textContent = state.hint;
  document.body.classList.toggle('joined', call.phase === 'joined');

  showSwitch('mute', !local.audioMuted, 'Mute', 'Unmute');
  showSwitch('camera-switch', local.cameraOn && !local.videoMuted, 'Stop video', 'Start video');
  showSwitch('speaker-switch', !local.speakerMuted, 'Mute speaker', 'Unmute speaker');
  byId('share').classList.toggle('on', share.phase === 'sharing');
  byId('share').querySelector('span').textContent =
    { asking: 'Asking…', sharing: 'Stop sharing' }[share.phase] ?? 'Share';
  byId('sharing').hidden = share.phase !== 'sharing';
  byId('sharing').querySelector('span').textContent = `You share ${share.text}`;
  if (share.phase === 'refused' && before && before.share.text !== share.text) notify(share.text);
  enableCallControls(call.phase);

  stage.update(state);
  showMode();
  people.update(streams);
  showDevices();
  if (before?.call.phase !== call.phase || before.call.reason !== call.reason) {
    stage.curtain = curtainFor(call);
    if (before) keepFocus();
  }
}

function enableCallControls(phase) {
  for (const id of CALL_CONTROLS) byId(id).disabled = phase !== 'joined';
  byId('leave-call').disabled = phase !== 'joined' && phase !== 'joining';
  byId('leave-call').querySelector('span').textContent = phase === 'joining' ? 'Cancel' : 'Leave';
}

// Moves the focus to the next element when its own was removed or disabled.
function keepFocus() {
  const { activeElement, body } = document;
  if (activeElement !== body && !activeElement.matches(':disabled')) return;
  (document.querySelector('.curtain button') ?? byId('stage')).focus();
}

function curtainFor({ phase, reason }) {
  if (phase === 'joining') return [element('p', { textContent: 'Joining…' })];
  if (phase === 'joined') return [];
  const [textContent, toJoin] = {
    left: [reason ? 'The meeting has ended for you.' : 'You left the meeting.', 'Join again'],
    notJoined: [reason ? 'You could not join.' : 'You did not join.', 'Join'],
  }[phase];
  return [
    element('p', { textContent }),
    element('small', { textContent: reason }),
    element('button', {
      className: 'primary',
      textContent: toJoin,
      onclick: () => connection.send('join'),
    }),
  ];
}

function showSwitch(id, isOn, textOn, textOff) {
  const button = byId(id);
  button.classList.toggle('off', !isOn);
  button.querySelector('span').textContent = isOn ? textOn : textOff;
}

function showLevels({ microphone, speaker }) {
  byId('mute').querySelector('meter').value = microphone;
  byId('speaker-switch').querySelector('meter').value = speaker;
  stage.showLevel(microphone);
}

function showStatistics(statistics) {
  if (!state) return;
  const received = new Map(statistics.video_recv_stats.map((stream) => [stream.ssrc, stream]));
  const titles = new Map(state.streams.map(({ csrc, title }) => [csrc, title]));
  charts.add(statistics, titles);
  stage.showRates(new Map(Array.from(received, ([csrc, { fps }]) => [csrc, fps])));
  const texts = state.streams.map(({ name, csrc, inWindow }) => {
    const stream = received.get(csrc);
    const size = stream?.fps > 0 ? `${stream.width}×${stream.height} · ${stream.fps}/s` : '';
    return [name, inWindow ? `in a window · ${size}` : size];
  });
  people.describe(new Map(texts));
}

let noticeTimer;
function notify(text) {
  byId('notice').textContent = text;
  byId('notice').hidden = false;
  clearTimeout(noticeTimer);
  noticeTimer = setTimeout(() => (byId('notice').hidden = true), NOTICE_MS);
}

// ---- Requests to the meeting

byId('mute').onclick = () => connection.send('muteAudio', { muted: !state.local.audioMuted });
byId('camera-switch').onclick = () =>
  connection.send('camera', { on: !state.local.cameraOn || state.local.videoMuted });
byId('speaker-switch').onclick = () =>
  connection.send('muteSpeaker', { muted: !state.local.speakerMuted });
byId('leave-call').onclick = () => connection.send('leave');
byId('share').onclick = () => {
  if (state.share.phase === 'asking') return;
  if (state.share.phase === 'sharing') connection.send('stopShare');
  else if (state.monitors.length === 0) notify('There is no screen to share.');
  else shareDialog.open(state.monitors);
};

// Windows that this page has opened, by stream name.
const windows = new Map();
stage.addEventListener('popOut', ({ detail: name }) => {
  const { title } = state.streams.find((stream) => stream.name === name);
  if (state.widget.phase !== 'running') {
    notify('The process that feeds windows is not running.');
    return;
  }
  const address = `${state.widget.address}#${encodeURIComponent(`${name}/${title}`)}`;
  windows.set(name, open(address, `tessel-${name}`, 'popup,width=640,height=360'));
});

const layoutForm = byId('layout-choice');
layoutForm.addEventListener('change', () => {
  const { mode, most, quality } = Object.fromEntries(new FormData(layoutForm));
  stage.choose({ mode, most: Number(most), quality: Number(quality) });
});
stage.addEventListener('changed', showMode);
function showMode() {
  layoutForm.elements.mode.value = stage.mode;
}

const deviceForm = byId('device-choice');
deviceForm.addEventListener('change', ({ target }) =>
  connection.send('device', { kind: target.name, id: target.value }),
);
function showDevices() {
  const isChoice = Object.values(state.devices).some((devices) => devices.length > 0);
  byId('devices-menu').disabled = !isChoice;
  for (const [kind, devices] of Object.entries(state.devices)) {
    const select = deviceForm.elements[kind];
    if (select.length === 0) select.append(...devices.map(({ id }) => new Option('', id)));
    devices.forEach(({ title, isPlugged }, index) => {
      const option = select.options[index];
      option.text = isPlugged ? title : `${title} (not plugged in)`;
      option.disabled = !isPlugged;
    });
    select.value = state.selected[kind];
  }
}

// Moves the keyboard focus into a menu that has opened.
for (const menu of [layoutForm, deviceForm]) {
  menu.addEventListener('toggle', ({ newState }) => {
    if (newState === 'open') menu.querySelector('input:checked, select').focus();
  });
}

// ---- The details

const tabs = [...document.querySelectorAll('[role=tab]')];
function selectTab(selected) {
  for (const tab of tabs) {
    tab.ariaSelected = tab === selected;
    tab.tabIndex = tab === selected ? 0 : -1;
    byId(tab.getAttribute('aria-controls')).hidden = tab !== selected;
  }
}
for (const tab of tabs) {
  tab.onclick = () => selectTab(tab);
  tab.onkeydown = ({ key }) => {
    const step = { ArrowLeft: -1, ArrowRight: 1 }[key];
    if (!step) return;
    const next = tabs.at((tabs.indexOf(tab) + step) % tabs.length);
    selectTab(next);
    next.focus();
  };
}
selectTab(tabs[0]);

function togglePanel(isOpen) {
  byId('panel').hidden = !isOpen;
  byId('panel-switch').ariaPressed = isOpen;
}
byId('panel-switch').onclick = () => togglePanel(byId('panel').hidden);
// On a narrow page it would cover the tiles.
const isRoomy = matchMedia('(min-width: 1101px)');
togglePanel(isRoomy.matches);
isRoomy.onchange = () => isRoomy.matches || togglePanel(false);

// ---- Keys

addEventListener('keydown', (event) => {
  // An element that has just closed may still have the focus.
  const isTyping = event.target.closest('select, input, dialog, [popover]')?.checkVisibility();
  if (isTyping || event.ctrlKey || event.metaKey || event.altKey || event.repeat) return;
  const key = CSS.escape(event.key.toLowerCase());
  const button = document.querySelector(`nav [aria-keyshortcuts="${key}"]`);
  if (!button || button.disabled) return;
  event.preventDefault(); // a menu that opens is not to take the key as typed into it
  if (button.popoverTargetElement) button.focus(); // where the focus returns to
  button.click();
});
for (const button of document.querySelectorAll('nav [aria-keyshortcuts]')) {
  button.title = `Key: ${button.getAttribute('aria-keyshortcuts').toUpperCase()}`;
}
