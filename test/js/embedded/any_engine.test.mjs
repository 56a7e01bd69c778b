// What is the same with every engine, with the embedded one.

import { testAnyEngine } from '../../support/any_engine.mjs';

testAnyEngine((t, others) => `tessel:room?participants=${others}&size=320x180`);
