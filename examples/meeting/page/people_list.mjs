// Who is there, and whose tile is shown.

import { element } from './elements.mjs';

export class PeopleList {
  #root;
  #stage;
  #rows = new Map(); // by stream name

  constructor(root, stage) {
    this.#stage = stage;
    this.#root = root.appendChild(element('ul'));
    stage.addEventListener('changed', () => this.#showChecks());
  }

  update(streams) {
    const names = new Set(streams.map(({ name }) => name));
    for (const [name, { item }] of this.#rows) {
      if (names.has(name)) continue;
      item.remove();
      this.#rows.delete(name);
    }
    for (const { name, title } of streams) {
      if (!this.#rows.has(name)) this.#rows.set(name, this.#add(name, title));
    }
    this.#showChecks();
  }

  // `texts` says by stream name how its picture arrives.
  describe(texts) {
    for (const [name, { detail }] of this.#rows) detail.textContent = texts.get(name) ?? '';
  }

  #add(name, title) {
    const box = element('input', {
      type: 'checkbox',
      onchange: () => this.#stage.toggleShown(name),
    });
    const detail = element('small');
    const item = element(
      'li',
      {},
      element('b', { textContent: title }),
      element('label', { ariaLabel: `Show ${title}` }, box, 'Show'),
      detail,
    );
    this.#root.append(item);
    return { item, box, detail };
  }

  #showChecks() {
    for (const [name, { box }] of this.#rows) box.checked = this.#stage.isShown(name);
  }
}
