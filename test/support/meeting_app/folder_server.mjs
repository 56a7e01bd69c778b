// A folder of modules with an empty page, for a browser.

import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { createServer } from 'node:http';
import path from 'node:path';

// Serves the files of `folder` until the test ends; answers with the page's address.
export async function serveFolder(test, folder) {
  const server = createServer(({ url }, response) => {
    if (url === '/') {
      response.setHeader('Content-Type', 'text/html');
      response.end('<!doctype html><title>test</title><link rel="icon" href="data:,">');
    } else {
      response.setHeader('Content-Type', 'text/javascript');
      response.end(readFileSync(path.join(folder, path.basename(url))));
    }
  });
  server.listen(0, '127.0.0.1');
  await once(server, 'listening');
  test.after(() => {
    server.closeAllConnections();
    server.close();
  });
  return `http://127.0.0.1:${server.address().port}/`;
}
