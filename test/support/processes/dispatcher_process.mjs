// node dispatcher_process.mjs SCENARIO: drives dispatchers in a process of its own and says on
// standard output what happened, line by line.

import { writeSync } from 'node:fs';
import { setFlagsFromString } from 'node:v8';
import { runInNewContext } from 'node:vm';
import { Channel, Dispatcher, closuresAlive, failScopes } from '../dispatcher_probe.mjs';
import { nextTurn } from '../next_turn.mjs';

function say(line) {
  writeSync(1, `${line}\n`);
}

function sayUncaught(describe = String) {
  process.on('uncaughtException', (error) => say(`uncaught: ${describe(error)}`));
}

function sayHowItEnds() {
  process.on('beforeExit', () => say('beforeExit'));
  process.on('exit', (code) => say(`exit ${code}`));
}

const scenarios = {
  async listenerThrows() {
    sayUncaught((error) => `${error} ${error.stack.match(/at \w+/)}`);
    function throwFromItem(value) {
      throw new Error(`thrown by item ${value}`);
    }
    const dispatcher = new Dispatcher((value) => {
      if (value === 2) {
        process.nextTick(say, `tick of ${value}`);
        throwFromItem(value);
      }
      say(`item ${value}`);
    });
    for (const value of [1, 2, 3]) dispatcher.async(value);
    await nextTurn();
    say(`${closuresAlive()} closures alive`);
    dispatcher.close();
  },

  async listenerThrowsAnything() {
    sayUncaught((thrown) => `${typeof thrown} ${String(thrown)}`);
    const throwables = ['text', 5, null, undefined, Symbol('mark')];
    const dispatcher = new Dispatcher((value) => {
      if (value <= throwables.length) throw throwables[value - 1];
      say(`item ${value}`);
    });
    for (let value = 1; value <= throwables.length + 1; ++value) dispatcher.async(value);
    await nextTurn();
    dispatcher.close();
  },

  async closuresThrow() {
    sayUncaught();
    const dispatcher = new Dispatcher((value) => say(`item ${value}`));
    dispatcher.async(1);
    dispatcher.asyncThrowing('exception');
    dispatcher.async(2);
    dispatcher.asyncThrowing('nonStandard');
    dispatcher.async(3);
    dispatcher.asyncThrowing('empty');
    dispatcher.async(4);
    await nextTurn();
    say(`${closuresAlive()} closures alive`);
    dispatcher.close();
  },

  async emptyCallback() {
    sayUncaught();
    const channel = new Channel();
    channel.callFromThread(0, 1);
    await nextTurn();
    channel.close();
  },

  async handleScopesOfThrowingItems() {
    setFlagsFromString('--expose-gc');
    const collectGarbage = runInNewContext('gc');
    process.on('uncaughtException', () => {});
    let last;
    const dispatcher = new Dispatcher((object) => {
      collectGarbage();
      say(last?.deref() === undefined ? 'collected' : 'alive');
      last = new WeakRef(object);
      throw new Error('does not refer to the object');
    });
    for (let i = 0; i < 3; ++i) dispatcher.asyncObject();
    await nextTurn();
    dispatcher.close();
  },

  async scopesFail() {
    sayUncaught();
    const dispatcher = new Dispatcher((value) => say(`item ${value}`));
    for (const kind of ['handle', 'callback']) {
      dispatcher.async(1);
      dispatcher.async(2);
      failScopes(kind, 1);
      await nextTurn();
    }
    const caller = dispatcher.startSync(3);
    while (!dispatcher.isBlocked(caller));
    failScopes('callback', 1);
    await nextTurn();
    dispatcher.join();
    say('the caller has returned');
    say(`${closuresAlive()} closures alive`);
    dispatcher.close();
  },

  async syncThrows() {
    sayUncaught();
    const dispatcher = new Dispatcher((value) => {
      throw new Error(`thrown by item ${value}`);
    });
    const caller = dispatcher.startSync(1);
    while (!dispatcher.isBlocked(caller));
    await nextTurn();
    dispatcher.join();
    say('the caller has returned');
    say(`${closuresAlive()} closures alive`);
    dispatcher.close();
  },

  async destroysAndThrows() {
    sayUncaught();
    const dispatcher = new Dispatcher(() => dispatcher.release());
    dispatcher.asyncThrowing('afterListener');
    dispatcher.async(1);
    await nextTurn();
    say(`${closuresAlive()} closures alive`);
  },

  async otherChannelThrows() {
    sayUncaught();
    const dispatcher = new Dispatcher((value) => {
      throw new Error(`thrown by item ${value}`);
    });
    const channel = new Channel((number) => say(`channel item ${number}`));
    dispatcher.async(1);
    await nextTurn();
    channel.callFromThread(5, 5);
    await nextTurn();
    channel.close();
    dispatcher.close();
  },

  staysAlive() {
    sayHowItEnds();
    const dispatcher = new Dispatcher((value) => {
      say(`item ${value}`);
      dispatcher.close();
    });
    dispatcher.startPostingWhenIdle(1);
  },

  endsAfterRelease() {
    sayHowItEnds();
    let arrived = 0;
    const dispatcher = new Dispatcher(() => {
      arrived += 1;
      if (arrived === 4000) say(`${arrived} items`);
    });
    dispatcher.startPosting(4, 1000);
    dispatcher.join();
    dispatcher.releaseEventLoop();
  },

  postsAtExit() {
    const dispatcher = new Dispatcher((value) => say(`item ${value}`));
    dispatcher.releaseEventLoop();
    process.on('exit', () => {
      say('exit');
      dispatcher.async(1);
    });
  },

  exitsInItem() {
    sayHowItEnds();
    const dispatcher = new Dispatcher((value) => {
      say(`item ${value}`);
      process.exit(7);
    });
    for (const value of [1, 2, 3]) dispatcher.async(value);
  },

  exitsWhileThreadsPost() {
    sayHowItEnds();
    const dispatcher = new Dispatcher(() => process.exit(8));
    const caller = dispatcher.startSync(1);
    while (!dispatcher.isBlocked(caller));
    dispatcher.startPosting(4, 100_000);
  },

  nobodyHandles() {
    sayHowItEnds();
    const dispatcher = new Dispatcher((value) => {
      throw new Error(`thrown by item ${value}`);
    });
    dispatcher.async(1);
    dispatcher.async(2);
  },
};

await scenarios[process.argv[2]]();
