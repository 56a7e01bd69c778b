// The probe of the build under test: see dispatcher_probe.cc.

import { createRequire } from 'node:module';
import path from 'node:path';

const probe = createRequire(import.meta.url)(
  path.join(process.env.TESSEL_BUILD, 'test/addons/dispatcher_probe.node'),
);
export const { Dispatcher, Channel, closuresAlive, failScopes } = probe;
