// node seeded_bug.mjs ADDON NAME: runs that bug of a canary addon, then ends by itself.

import { createRequire } from 'node:module';
import path from 'node:path';

import { build } from '../build.mjs';

const [addon, name] = process.argv.slice(2);
const canary = createRequire(import.meta.url)(path.join(build, 'test/addons', `${addon}.node`));
canary[name]();
