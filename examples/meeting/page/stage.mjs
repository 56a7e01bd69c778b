// The stage: a tile for each shown stream, its place, and the requests to the meeting process for
// its frames.

import { focusOf, gridOf } from './arrangement.mjs';
import { element, icon } from './elements.mjs';
import { DrawLoop, Tile } from './tile.mjs';

// Tiles below this height get fewer details and a lower frame rate.
const SMALL_HEIGHT = 150;

// Emits 'changed' when other streams are shown or hidden, and 'popOut' with a stream's name.
export class Stage extends EventTarget {
  #root;
  #connection;
  #loop;
  #tiles = new Map(); // StageTile by stream name
  #state = { streams: [], call: {}, local: {} };
  #hidden = new Set();
  #focused; // a stream's name
  #choice = { mode: 'grid', most: 12, quality: 0 };
  #beforeContent; // { mode, focused } while there is content
  #lastLayout;
  #curtain = element('div', { className: 'curtain', hidden: true });

  constructor(root, connection) {
    super();
    this.#root = root;
    this.#connection = connection;
    this.#loop = new DrawLoop((streams) => connection.send('drawn', { streams }));
    root.append(this.#curtain);
    new ResizeObserver(() => this.#arrange()).observe(root);
    connection.addEventListener('frame', ({ detail: { name, frame } }) => {
      const tile = this.#tiles.get(name);
      if (tile) this.#loop.take(tile, frame);
      else connection.send('drawn', { streams: [name] }); // its tile has gone meanwhile
    });
    // A new connection needs the layout again.
    connection.addEventListener('open', () => (this.#lastLayout = undefined));
  }

  // The elements of the overlay in front of the tiles, if any.
  set curtain(children) {
    this.#curtain.replaceChildren(...children);
    this.#curtain.hidden = children.length === 0;
  }

  get mode() {
    return this.#choice.mode;
  }

  // { mode: 'grid' or 'focus', most: tiles of others at most, quality: lines of a picture, 0 for as
  // many as its tile has }, or some of them.
  choose(choice) {
    this.#choice = { ...this.#choice, ...choice };
    this.#arrange();
  }

  update(state) {
    // Content is shown in the large tile; the previous arrangement is restored after it.
    const hasContent = state.streams.some(({ type }) => type === 'content');
    if (hasContent && !this.#beforeContent) {
      this.#beforeContent = { mode: this.#choice.mode, focused: this.#focused };
      this.#choice.mode = 'focus';
      this.#focused = undefined;
    } else if (!hasContent && this.#beforeContent) {
      this.#choice.mode = this.#beforeContent.mode;
      this.#focused = this.#beforeContent.focused;
      this.#beforeContent = undefined;
    }
    this.#state = state;
    this.#arrange();
  }

  // Removes every tile.
  clear() {
    this.update({ streams: [], call: {}, local: {} });
  }

  isHidden(name) {
    return this.#hidden.has(name);
  }

  // Whether the stream should be shown but has no tile, because the maximum number is reached.
  isWithoutRoom(name) {
    return this.#isJoined && !this.#tiles.has(name) && !this.#hidden.has(name);
  }

  setHidden(name, isHidden) {
    if (isHidden) this.#hidden.add(name);
    else this.#hidden.delete(name);
    this.#arrange();
  }

  toggleFocus(name) {
    const isFocused = this.#choice.mode === 'focus' && this.#focused === name;
    this.#focused = isFocused ? undefined : name;
    this.#choice.mode = isFocused ? 'grid' : 'focus';
    this.#arrange();
  }

  showLevel(level) {
    const tile = this.#tiles.get('local-0');
    if (tile) tile.level = level;
  }

  // `rates`: the frames per second of streams, by csrc.
  showRates(rates) {
    for (const { name, csrc } of this.#state.streams)
      this.#tiles.get(name)?.showRate(rates.get(csrc));
  }

  get #isJoined() {
    return this.#state.call.phase === 'joined';
  }

  // The streams to show, the most important first.
  #shown() {
    const rank = ({ type, name }) =>
      name === this.#focused ? 0 : { content: 1, remote: 2, local: 3 }[type];
    const present = this.#state.streams
      .filter(({ name }) => !this.#hidden.has(name))
      .sort((one, other) => rank(one) - rank(other) || one.streamIndex - other.streamIndex);
    let others = 0;
    return present.filter(({ type }) => type === 'local' || (others += 1) <= this.#choice.most);
  }

  #arrange() {
    const shown = this.#isJoined ? this.#shown() : [];
    this.#keepTiles(shown);
    const arrange = this.#choice.mode === 'focus' ? focusOf : gridOf;
    const places = arrange(shown.length, this.#root.clientWidth, this.#root.clientHeight);
    shown.forEach(({ name }, index) => this.#tiles.get(name).place(places[index]));
    if (this.#isJoined) this.#askFor(shown, places);
    this.dispatchEvent(new Event('changed'));
  }

  #keepTiles(shown) {
    const focused = document.activeElement;
    const names = new Set(shown.map(({ name }) => name));
    for (const [name, tile] of this.#tiles) {
      if (names.has(name)) continue;
      tile.remove();
      this.#tiles.delete(name);
    }
    for (const stream of shown) {
      let tile = this.#tiles.get(stream.name);
      if (!tile) {
        tile = new StageTile(stream, this.#actions);
        this.#tiles.set(stream.name, tile);
      }
      tile.show(stream, this.#state.local);
    }
    // In the order in which they stand, for the keyboard.
    let next = this.#curtain.nextElementSibling;
    for (const { name } of shown) {
      const tile = this.#tiles.get(name).element;
      if (tile === next) next = next.nextElementSibling;
      else this.#root.insertBefore(tile, next);
    }
    // An element that is moved or removed loses the focus.
    if (document.activeElement === focused) return;
    (focused.isConnected ? focused : this.#root).focus({ preventScroll: true });
  }

  #actions = {
    focus: (name) => this.toggleFocus(name),
    popOut: (name) => this.dispatchEvent(new CustomEvent('popOut', { detail: name })),
    hide: (name) => this.setHidden(name, true),
    bringBack: (name) => this.#connection.send('bringBack', { stream: name }),
  };

  // Sends the shown streams and their sizes to the meeting.
  #askFor(shown, places) {
    const { quality } = this.#choice;
    const tiles = shown
      .map(({ name, inWindow, isSending }, index) => {
        const { height } = places[index];
        return {
          isWanted: isSending && !inWindow,
          stream: name,
          height: quality || Math.round(height * (devicePixelRatio || 1)),
          frameRate: height < SMALL_HEIGHT ? 15 : 30,
        };
      })
      .filter(({ isWanted }) => isWanted)
      .map(({ stream, height, frameRate }) => ({ stream, height, frameRate }));
    const layout = JSON.stringify(tiles);
    if (layout === this.#lastLayout) return;
    this.#lastLayout = layout;
    this.#connection.send('layout', { tiles });
  }
}

// A tile with its controls.
class StageTile extends Tile {
  #meter = element('meter', { max: 100, hidden: true, ariaLabel: 'Level' });
  #rate = element('small');
  #bringBack;
  #popOut;
  #isBlank = false;

  constructor({ name, title, type }, actions) {
    super(name, title);
    this.label.append(this.#meter, this.#rate);
    this.#meter.hidden = type !== 'local';
    this.#bringBack = element('button', {
      textContent: 'Bring it back',
      hidden: true,
      onclick: () => actions.bringBack(name),
    });
    this.element.querySelector('.face').append(this.#bringBack);
    this.element.tabIndex = 0;
    // For the mouse only: the tile itself handles the keys, and is the only place where Tab stops.
    const button = (text, key, symbol, act) =>
      element(
        'button',
        { title: `${text} (${key})`, ariaLabel: text, tabIndex: -1, onclick: act },
        icon(symbol),
      );
    const acts = {
      enter: () => actions.focus(name),
      o: () => this.#popOut.hidden || actions.popOut(name),
      h: () => actions.hide(name),
    };
    this.#popOut = button('Show it in a window of its own', 'O', 'pop-out', acts.o);
    this.element.append(
      element(
        'div',
        { className: 'actions' },
        button('Show it large', 'Enter', 'focus', acts.enter),
        this.#popOut,
        button('Hide it', 'H', 'hide', acts.h),
      ),
    );
    this.element.addEventListener('dblclick', acts.enter);
    this.element.addEventListener('keydown', (event) => {
      if (event.target !== this.element || event.ctrlKey || event.metaKey || event.altKey) return;
      acts[event.key.toLowerCase()]?.();
    });
  }

  // Frames that are still in transit are not shown.
  take(frame) {
    super.take(this.#isBlank ? null : frame);
  }

  show({ title, isSpeaking, inWindow, isSending, type }, { cameraOn, videoMuted }) {
    this.title = title;
    this.element.classList.toggle('speaking', isSpeaking);
    this.#isBlank = inWindow || !isSending;
    if (this.#isBlank) {
      this.take(null);
      this.draw();
    }
    this.#bringBack.hidden = !inWindow;
    this.#popOut.hidden = inWindow;
    this.element.setAttribute('aria-keyshortcuts', inWindow ? 'Enter H' : 'Enter O H');
    if (inWindow) this.message = 'In a window of its own';
    else if (type === 'local' && !cameraOn) this.message = 'Your camera is off';
    else if (type === 'local' && videoMuted) this.message = 'The meeting has muted your video';
    else this.message = '';
  }

  place({ x, y, width, height }) {
    const pixels = { left: x, top: y, width, height };
    for (const [side, value] of Object.entries(pixels)) this.element.style[side] = `${value}px`;
    this.element.classList.toggle('small', height < SMALL_HEIGHT);
  }

  set level(level) {
    this.#meter.value = level;
  }

  showRate(rate) {
    this.#rate.textContent =
      this.size && rate !== undefined ? `${this.size} · ${rate}/s` : this.size;
  }
}
