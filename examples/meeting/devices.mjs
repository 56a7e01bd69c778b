// The devices that a person may choose. Listing them is the application's business; these are the
// ones of the embedded engine. In a real meeting there is nothing to choose: the machine's usual ones
// are used, or what the uri says.

const TITLES = { camera: 'Camera', microphone: 'Microphone', speaker: 'Speaker' };
const OF_EACH_KIND = 3;
// The others come where a meeting says so.
const PLUGGED_AT_FIRST = 2;

const initialDevices = (kind, uri) =>
  Array.from({ length: uri.startsWith('tessel:') ? OF_EACH_KIND : 0 }, (_, index) => ({
    id: `${kind}-${index}`,
    title: `${TITLES[kind]} ${index + 1}`,
    isPlugged: index < PLUGGED_AT_FIRST,
  }));

// Which of them are plugged in, and which one of each kind is used. The engine tells only that a
// device came or went, and not which one it uses then: this follows its rules.
export class Devices {
  #all; // by kind
  #selected = {}; // ids by kind

  // Of the engine that takes `uri`.
  constructor(uri) {
    this.#all = Object.fromEntries(
      Object.keys(TITLES).map((kind) => [kind, initialDevices(kind, uri)]),
    );
    for (const kind of Object.keys(TITLES)) this.#selectFirst(kind);
  }

  // By kind: { id, title, isPlugged } each.
  get all() {
    return this.#all;
  }

  // The id of the one that is used, by kind; '' where none is plugged in.
  get selected() {
    return this.#selected;
  }

  // The device, to be selected; throws where there is none.
  pluggedIn(kind, id) {
    const devices = Object.hasOwn(this.#all, kind) ? this.#all[kind] : [];
    const device = devices.find((each) => each.id === id);
    if (!device) throw new TypeError(`no such device: ${kind} ${id}`);
    if (!device.isPlugged) throw new Error(`${device.title} is not plugged in`);
    return device;
  }

  select(kind, id) {
    this.#selected = { ...this.#selected, [kind]: id };
  }

  // One came or went. Where nothing that is plugged in is selected, the first one left is used.
  turnAround(id) {
    for (const [kind, devices] of Object.entries(this.#all)) {
      if (!devices.some((device) => device.id === id)) continue;
      this.#all = {
        ...this.#all,
        [kind]: devices.map((device) =>
          device.id === id ? { ...device, isPlugged: !device.isPlugged } : device,
        ),
      };
      if (!this.#isPluggedIn(kind, this.#selected[kind])) this.#selectFirst(kind);
    }
  }

  #isPluggedIn(kind, id) {
    return this.#all[kind].some((device) => device.id === id && device.isPlugged);
  }

  #selectFirst(kind) {
    this.select(kind, this.#all[kind].find(({ isPlugged }) => isPlugged)?.id ?? '');
  }
}
