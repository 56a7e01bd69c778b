// Ways in which JavaScript can keep an array buffer from being detached. Each takes the buffer and
// returns an object that then reads its bytes.

import v8 from 'node:v8';
import vm from 'node:vm';

export const WAYS_OUT_OF_REACH = {
  'the heap of an asm.js module': (buffer) => {
    const makeModule = new Function(
      ...['stdlib', 'foreign', 'heap'],
      `'use asm';
      var bytes = new stdlib.Uint8Array(heap);
      function byteAt(i) { i = i | 0; return bytes[i | 0] | 0; }
      return { byteAt: byteAt };`,
    );
    const { byteAt } = makeModule(globalThis, {}, buffer);
    return { length: () => buffer.byteLength, byteAt };
  },
  'moved to another buffer': (buffer) => {
    // A context made with the flag has the method also where it is not standard yet.
    v8.setFlagsFromString('--harmony-rab-gsab-transfer');
    const { transfer } = vm.runInNewContext('ArrayBuffer.prototype');
    const moved = new Uint8Array(transfer.call(buffer));
    return { length: () => moved.length, byteAt: (i) => moved[i] };
  },
};
