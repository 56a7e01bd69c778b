// Processes that run the test's commands, one at a time, and that the test may kill.
//
// The test's side:
//
//   const main = await startProcess(t, './support/processes/main_process.mjs');
//   const key = await main.does('construct');
//
// The process's side, in that module: obey({ construct() { ... } }).

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { EventEmitter, once } from 'node:events';
import { writeSync } from 'node:fs';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';

const testDirectory = new URL('../', import.meta.url);

// An answer or a report is a line of the process's standard output, so that it arrives after
// everything that the process wrote before.
const MARK = '\u0001';

class CommandedProcess {
  #child;
  #news = new EventEmitter().setMaxListeners(0);
  #answers = new Map();
  #commands = 0;

  // What the process wrote to its standard output, and what it reported by itself, so far.
  lines = [];
  reports = [];

  constructor(child) {
    this.#child = child;
    const output = createInterface({ input: child.stdout });
    output.on('line', (line) => {
      if (line.startsWith(MARK)) this.#take(JSON.parse(line.slice(MARK.length)));
      else this.lines.push(line);
      this.#news.emit('news');
    });
    // Resolves with { code, signal } when the process has ended and all its output was read.
    this.ended = Promise.all([once(child, 'exit'), once(output, 'close')]).then(
      ([[code, signal]]) => {
        this.outcome = { code, signal };
        this.#news.emit('news');
        return this.outcome;
      },
    );
  }

  #take({ command, result, error, report: what }) {
    if (command === undefined) this.reports.push(what);
    else this.#answers.set(command, { result, error });
  }

  get pid() {
    return this.#child.pid;
  }

  // Resolves with the first truthy result of `find`, which is called whenever the process has
  // written or reported something. Rejects when the process ends before.
  async seen(find) {
    for (;;) {
      const found = find(this);
      if (found) return found;
      if (this.outcome) {
        throw new Error(
          `${JSON.stringify(this.outcome)}, after: ${this.lines.slice(-9).join('\n')}`,
        );
      }
      await once(this.#news, 'news');
    }
  }

  // Resolves with the command's result; rejects with its exception, or when the process ends.
  async does(name, ...args) {
    const command = ++this.#commands;
    this.#child.send({ command, name, args });
    const { result, error } = await this.seen(() => this.#answers.get(command));
    this.#answers.delete(command);
    if (error !== undefined) throw new Error(`${name}: ${error}`);
    return result;
  }

  count(line) {
    return this.lines.filter((each) => each === line).length;
  }

  signal(name) {
    process.kill(this.pid, name);
  }

  async kill() {
    this.#child.kill('SIGKILL');
    await this.ended;
    assert.equal(this.outcome.signal, 'SIGKILL');
  }

  // Lets the process end by itself, which it has to do without an error.
  async ends() {
    await this.does('end');
    assert.deepEqual(await this.ended, { code: 0, signal: null });
  }
}

// Starts a module of test/. `command` is a program with arguments that itself starts node: it runs
// without the sanitizers' runtime, which only works in node.
export function startProcess(test, module, { args = [], environment = {}, command = [] } = {}) {
  const file = fileURLToPath(new URL(module, testDirectory));
  const [program, ...words] = [...command, process.execPath, file, ...args];
  const child = spawn(program, words, {
    env: { ...process.env, ...environment, ...(command.length > 0 && { LD_PRELOAD: '' }) },
    // The lines of the processes' own errors belong to the test's.
    stdio: ['ignore', 'pipe', 'inherit', 'ipc'],
  });
  const started = new CommandedProcess(child);
  test.after(async () => {
    child.kill('SIGKILL');
    await started.ended;
  });
  return started;
}

const say = (message) => writeSync(1, `${MARK}${JSON.stringify(message)}\n`);

// In the process: runs the test's commands. "end" runs `commands.end`, if there is one, and closes
// the channel, after which the process ends by itself unless a handle keeps it alive.
export function obey(commands) {
  process.on('message', async ({ command, name, args }) => {
    try {
      const run = name === 'end' ? (commands.end ?? (() => {})) : commands[name];
      say({ command, result: await run(...args) });
    } catch (error) {
      say({ command, error: error.stack });
    }
    if (name === 'end') process.disconnect();
  });
}

// In the process: reports something without a command.
export const report = (what) => say({ report: what });
