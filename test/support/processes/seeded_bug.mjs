// node seeded_bug.mjs NAME: runs that bug of the canary addon, then ends by itself.

import { createRequire } from 'node:module';
import path from 'node:path';

import { build } from '../build.mjs';

const canary = createRequire(import.meta.url)(path.join(build, 'test/addons/canary.node'));
canary[process.argv[2]]();
