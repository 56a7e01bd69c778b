// Selects the source to share: a monitor on a map of the monitors, or another source by its number.

import { element } from './elements.mjs';

// The largest size of the map, in pixels; a narrow dialog has a smaller one.
const PICTURE = { width: 440, height: 190 };

export class ShareDialog {
  #dialog;
  #form;
  #monitors;
  #onChoice;

  // `onChoice` is called with the engine's description of the selected source.
  constructor(dialog, onChoice) {
    this.#dialog = dialog;
    this.#form = dialog.querySelector('form');
    this.#monitors = dialog.querySelector('#monitors');
    this.#onChoice = onChoice;
    this.#form.addEventListener('change', () => this.#showWhatMatters());
    dialog.querySelector('button[type=button]').onclick = () => this.close();
    // Not on the 'close' event, which is late: the dialog may have been opened again.
    this.#form.addEventListener('submit', () => this.#onChoice(this.#choice()));
  }

  open(monitors) {
    this.#draw(monitors);
    this.#showWhatMatters();
    this.#dialog.showModal();
  }

  // Without a choice.
  close() {
    this.#dialog.close();
  }

  #choice() {
    const { type, screen = '-1', id } = Object.fromEntries(new FormData(this.#form));
    return type === 'screen'
      ? { type, screenId: Number(screen) }
      : { type, [`${type}Id`]: Number(id) };
  }

  #showWhatMatters() {
    const isScreen = new FormData(this.#form).get('type') === 'screen';
    this.#monitors.hidden = !isScreen;
    this.#dialog.querySelector('#identifier').hidden = isScreen;
  }

  #draw(monitors) {
    const picture = this.#monitors.querySelector('div');
    const left = Math.min(...monitors.map(({ x }) => x));
    const top = Math.min(...monitors.map(({ y }) => y));
    const width = Math.max(...monitors.map((monitor) => monitor.x + monitor.width)) - left;
    const height = Math.max(...monitors.map((monitor) => monitor.y + monitor.height)) - top;
    const scale = Math.min(PICTURE.width / width, PICTURE.height / height);
    picture.style.width = `${width * scale}px`;
    picture.style.aspectRatio = `${width} / ${height}`;
    const share = (part, whole) => `${(100 * part) / whole}%`;
    picture.replaceChildren(
      ...monitors.map((monitor, index) => {
        const radio = { type: 'radio', name: 'screen', value: index, checked: index === 0 };
        const label = element(
          'label',
          {},
          element('input', radio),
          element(
            'span',
            {},
            element('b', { textContent: index + 1 }),
            element('small', { textContent: `${monitor.width}×${monitor.height}` }),
          ),
        );
        label.style.left = share(monitor.x - left, width);
        label.style.top = share(monitor.y - top, height);
        label.style.width = share(monitor.width, width);
        label.style.height = share(monitor.height, height);
        return label;
      }),
    );
  }
}
