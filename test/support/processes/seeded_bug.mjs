// node seeded_bug.mjs NAME: commits that bug of the canary addon, then ends by itself.

import { createRequire } from 'node:module';
import path from 'node:path';

const canary = createRequire(import.meta.url)(
  path.join(process.env.TESSEL_BUILD, 'test/addons/canary.node'),
);
canary[process.argv[2]]();
