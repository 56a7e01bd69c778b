// Streams as the addon's methods name them.

export const LOCAL = { type: 'local', streamIndex: 0 };
export const CONTENT = { type: 'content', streamIndex: 0 };
export const remote = (streamIndex) => ({ type: 'remote', streamIndex });
