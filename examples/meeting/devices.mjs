// The devices that a person may choose. Listing them is the application's business; these are the
// ones of the embedded engine. In a real meeting there is nothing to choose: the machine's usual ones
// are used, or what the uri says.

const TITLES = { camera: 'Camera', microphone: 'Microphone', speaker: 'Speaker' };
const OF_EACH_KIND = 3;
// A meeting's uri can plug in the others.
const PLUGGED_AT_FIRST = 2;

const initialDevices = (kind, uri) =>
  Array.from({ length: uri.startsWith('tessel:') ? OF_EACH_KIND : 0 }, (_, index) => ({
    id: `${kind}-${index}`,
    title: `${TITLES[kind]} ${index + 1}`,
    isPlugged: index < PLUGGED_AT_FIRST,
  }));

// The plugged-in devices, and the used one of each kind. The engine notifies only that a device was
// plugged in or unplugged, not which one it then uses: this class applies the same rules.
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

  // The id of the used device, by kind; '' when none is plugged in.
  get selected() {
    return this.#selected;
  }

  // The device to select; throws when it does not exist.
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

  // A device was plugged in or unplugged. If the selected one is unplugged, the first remaining one
  // is used.
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
