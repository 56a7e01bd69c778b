// Making and losing wrappers, in the tests' own process or in a child. Importing this loads the
// scripted engine, but not the addon.

import { EventEmitter } from 'node:events';

import { PARAMS, makeWrapper } from '../make_wrapper.mjs';
import { remote } from '../streams.mjs';
import * as engine from './scripted_engine.mjs';

export { say } from '../child.mjs';
export { collect, collectGarbage } from '../collector.mjs';
export { nextTurn } from '../next_turn.mjs';
export { EventEmitter, PARAMS, engine };

// A new wrapper: see makeWrapper.
export const construct = (options) =>
  makeWrapper(engine.loadAddon().TesselWrapper, options).wrapper;

// The same with a remote stream in widget mode, whose frames are being copied into its segment.
export function constructInWidgetMode() {
  const stream = remote(3);
  engine.setStream(stream);
  const wrapper = construct();
  wrapper.enterWidgetMode(stream);
  if (!engine.pushFrame(stream, { width: 64, height: 36 })) throw new Error('no receiver');
  engine.startPushing(stream, { width: 64, height: 36, recycled: true });
  return wrapper;
}
