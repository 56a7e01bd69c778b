// The same declarations serve `require`.

import tessel = require('tessel-wrapper');

export const open: Promise<tessel.Meeting> = tessel.Meeting.open({ logPath: '' });
export const stream: tessel.StreamKey = { type: 'local', streamIndex: 0 };
