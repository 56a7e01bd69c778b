// One stream's tile: its picture, or its initials while there is none, and its name.

import { I420Renderer } from '../renderer/renderer.mjs';
import { element } from './elements.mjs';

const initialsOf = (title) =>
  title
    .split(/[\s-]+/)
    .map(([letter]) => letter)
    .slice(0, 2)
    .join('');

export class Tile {
  #canvas = element('canvas');
  #title = element('b');
  #initials = element('span', { className: 'initials' });
  #message = element('span');
  #renderer;
  #newest; // a frame that waits to be drawn; null: the picture is taken away

  // The line at the bottom, for more than the name.
  label = element('div', { className: 'label' }, this.#title);
  element = element(
    'article',
    { className: 'tile' },
    this.#canvas,
    element('div', { className: 'face' }, this.#initials, this.#message),
    this.label,
  );

  constructor(name, title) {
    this.name = name;
    this.element.dataset.stream = name;
    this.title = title;
  }

  set title(title) {
    if (this.#title.textContent === title) return;
    this.#title.textContent = title;
    this.#initials.textContent = initialsOf(title);
    this.element.setAttribute('aria-label', title);
  }

  // The text below the initials.
  set message(text) {
    this.#message.textContent = text;
  }

  // Keeps a frame, or null, until draw().
  take(frame) {
    this.#newest = frame;
  }

  // Draws the latest frame.
  draw() {
    if (this.#newest === undefined) return;
    if (this.#newest) {
      this.#renderer ??= new I420Renderer(this.#canvas);
      this.#renderer.draw(this.#newest);
      this.#canvas.dataset.size = `${this.#newest.width}×${this.#newest.height}`;
    }
    this.element.classList.toggle('live', this.#newest !== null);
    this.#newest = undefined;
  }

  // The size of the picture that is shown, as a text; empty without one.
  get size() {
    return this.element.classList.contains('live') ? this.#canvas.dataset.size : '';
  }

  remove() {
    this.element.remove();
    this.#newest = undefined;
    this.#renderer?.dispose();
  }
}

// Draws the tiles that have a new frame when the browser next paints, and then calls `drawn` with
// their names: a page that is not painted requests no frames.
export class DrawLoop {
  #waiting = new Set();
  #drawn;

  constructor(drawn) {
    this.#drawn = drawn;
  }

  take(tile, frame) {
    tile.take(frame);
    if (this.#waiting.size === 0) requestAnimationFrame(() => this.#draw());
    this.#waiting.add(tile);
  }

  #draw() {
    const tiles = [...this.#waiting];
    this.#waiting.clear();
    for (const tile of tiles) {
      try {
        tile.draw();
      } catch (error) {
        reportError(error); // the others are not to wait for a picture that cannot be drawn
      }
    }
    this.#drawn(tiles.map(({ name }) => name));
  }
}
