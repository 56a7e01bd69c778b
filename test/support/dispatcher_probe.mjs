// The probe of the build under test: see dispatcher_probe.cc.

import { createRequire } from 'node:module';
import path from 'node:path';

import { build } from './build.mjs';

const probe = createRequire(import.meta.url)(path.join(build, 'test/addons/dispatcher_probe.node'));
export const { Dispatcher, Channel, closuresAlive, failScopes } = probe;
