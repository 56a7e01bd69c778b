// A stream's own window, fed by the widget process. The address has the stream's name after #.

import { Connection } from './connection.mjs';
import { DrawLoop, Tile } from './tile.mjs';

const [stream, title = stream] = decodeURIComponent(location.hash.slice(1)).split('/');
const tile = new Tile(stream, title);
document.title = title;
document.body.append(tile.element);
tile.message = 'Waiting for the picture…';

// The time in which another widget process may replace a killed one.
const connection = new Connection({ mostTries: 8 });
const loop = new DrawLoop((streams) => connection.send('drawn', { streams }));
const show = () =>
  connection.send('show', { stream, height: innerHeight * (devicePixelRatio || 1) });

function blank(message) {
  tile.message = message;
  loop.take(tile, null);
}

connection.addEventListener('open', show);
connection.addEventListener('frame', ({ detail }) => loop.take(tile, detail.frame));
connection.addEventListener('closed', () => blank('The picture comes back in a moment…'));
connection.addEventListener('lost', () => blank('This window gets no pictures any more.'));
connection.addEventListener('ended', ({ detail }) => blank(detail));
addEventListener('resize', show);
