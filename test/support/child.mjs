// Scripts in child processes: for what a process prints, how it ends, and what would end the tests'
// own process.

import { spawnSync } from 'node:child_process';
import { writeSync } from 'node:fs';
import { fileURLToPath } from 'node:url';

const testDirectory = new URL('../', import.meta.url);
// Far above what any script takes, also under a sanitizer: it ends what would never end.
const TIME_LIMIT_MS = 120_000;

const SAID = '> ';

// In the child: says something to the parent, as a line in the order of the process's output.
export const say = (text) => writeSync(1, `${SAID}${text}\n`);

// Runs `script` in a process of its own and answers with how that ended: its exit code, or the
// signal that ended it; what it said; the lines of its standard output, what it said included; its
// standard error as one text; and its process id.
//
// `script` is a function, async or not, whose text is sent to the child: it sees the global objects,
// `require`, its own arguments and nothing of the file that it stands in. Its arguments are
// `modules`, named by their paths in test/js. `args` follow process.execPath in the child's
// process.argv, `environment` is added to this process's own.
export function runInChild(script, { modules = [], args = [], environment = {} } = {}) {
  const imports = modules.map((module) => `await import('${new URL(module, testDirectory)}')`);
  const source = `(async () => (${script})(${imports.join(', ')}))();`;
  const { status, error, signal, stdout, stderr, pid } = spawnSync(
    process.execPath,
    ['--eval', source, '--', ...args],
    {
      cwd: fileURLToPath(testDirectory),
      env: { ...process.env, ...environment },
      encoding: 'utf8',
      timeout: TIME_LIMIT_MS,
      killSignal: 'SIGKILL',
    },
  );
  if (error && error.code !== 'ETIMEDOUT') throw error;
  const lines = stdout.split('\n').slice(0, -1);
  const said = lines.filter((line) => line.startsWith(SAID)).map((line) => line.slice(SAID.length));
  return { code: status, signal, said, lines, stderr, pid };
}
