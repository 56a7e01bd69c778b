'use strict';

// The package's exports: the addon's two classes unchanged, and the classes built on them.

const { TesselWrapper, TesselWrapperProxy } = require('./addon.js');
const { CallError, ClosedError, ShareError, TimeoutError } = require('./errors.js');
const { EVENT_NAMES } = require('./event_names.js');
const { copyI420, copyRgba } = require('./frame_copies.js');
const { FrameLedger } = require('./frame_counters.js');
const { Meeting } = require('./meeting/meeting.js');
const { Widget } = require('./widget.js');

const frameCounters = () => FrameLedger.all();

module.exports = {
  TesselWrapper,
  TesselWrapperProxy,
  Meeting,
  Widget,
  EVENT_NAMES,
  copyI420,
  copyRgba,
  frameCounters,
  CallError,
  ClosedError,
  ShareError,
  TimeoutError,
};
