// The event log, the newest entry on top.

import { element } from './elements.mjs';

const MOST_ENTRIES = 200;

const clock = new Intl.DateTimeFormat(undefined, { timeStyle: 'medium' });

export class EventList {
  #list;
  #lastNumber = 0;

  constructor(list) {
    this.#list = list;
  }

  // A new connection sends entries again that are already listed: they are listed once.
  add(entries) {
    for (const { number, time, name, payload } of entries) {
      if (number <= this.#lastNumber) continue;
      this.#lastNumber = number;
      const words = Object.entries(payload).map(([key, value]) => `${key} ${value}`);
      const item = element(
        'li',
        { className: name },
        element('time', { textContent: clock.format(time) }),
        element('b', { textContent: name }),
        element('span', { textContent: words.join(' · ') }),
      );
      this.#list.prepend(item);
    }
    while (this.#list.children.length > MOST_ENTRIES) this.#list.lastChild.remove();
  }
}
