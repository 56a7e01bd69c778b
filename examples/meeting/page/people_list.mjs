// The list of participants: who is present, whose tile is selected, and who has no free tile.

import { element } from './elements.mjs';

export class PeopleList {
  #root;
  #stage;
  #rows = new Map(); // by stream name
  #texts = new Map(); // how its picture arrives, by stream name

  constructor(root, stage) {
    this.#stage = stage;
    this.#root = root.appendChild(element('ul'));
    stage.addEventListener('changed', () => this.#show());
  }

  update(streams) {
    const names = new Set(streams.map(({ name }) => name));
    for (const [name, { item }] of this.#rows) {
      if (names.has(name)) continue;
      item.remove();
      this.#rows.delete(name);
    }
    for (const { name, title } of streams) {
      if (!this.#rows.has(name)) this.#rows.set(name, this.#add(name));
      const { heading, label } = this.#rows.get(name);
      heading.textContent = title;
      label.ariaLabel = `Show ${title}`;
    }
    this.#show();
  }

  // `texts` says by stream name how its picture arrives.
  describe(texts) {
    this.#texts = texts;
    this.#show();
  }

  #add(name) {
    const box = element('input', {
      type: 'checkbox',
      onchange: () => this.#stage.setHidden(name, !box.checked),
    });
    const detail = element('small');
    const heading = element('b');
    const label = element('label', {}, box, 'Show');
    const item = element('li', {}, heading, label, detail);
    this.#root.append(item);
    return { item, heading, label, box, detail };
  }

  #show() {
    for (const [name, { box, detail }] of this.#rows) {
      box.checked = !this.#stage.isHidden(name);
      detail.textContent = this.#stage.isWithoutRoom(name)
        ? 'no room for another tile'
        : (this.#texts.get(name) ?? '');
    }
  }
}
