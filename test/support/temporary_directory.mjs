import { mkdtempSync, rmSync } from 'node:fs';
import os from 'node:os';
import path from 'node:path';

// A fresh directory that is removed when `test` ends.
export function temporaryDirectory(test) {
  const directory = mkdtempSync(path.join(os.tmpdir(), 'tessel-test-'));
  test.after(() => rmSync(directory, { recursive: true }));
  return directory;
}
