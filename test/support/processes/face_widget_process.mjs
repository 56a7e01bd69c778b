// A widget's process: sends the cards of three pictures to its parent, which has sent the names.

import { once } from 'node:events';

import { readCard } from '../card_code.mjs';
import { face } from '../face.mjs';

const [names] = await once(process, 'message');
const widget = new face.Widget(names);
const cards = new Map();
const controller = new AbortController();
await widget
  .watch(
    { type: 'remote', streamIndex: 0 },
    (frame) => {
      const card = readCard(frame);
      cards.set(card.number, card);
      if (cards.size === 3) controller.abort();
    },
    { signal: controller.signal },
  )
  .catch(() => {});
widget.close();
process.send([...cards.values()], () => process.disconnect());
