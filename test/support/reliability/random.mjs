// Random choices that depend on a seed: a linear congruential generator.

const MULTIPLIER = 6364136223846793005n;
const INCREMENT = 1442695040888963407n;

export class Random {
  #state;

  constructor(seed) {
    this.#state = BigInt(seed);
    this.number();
  }

  // From 0 to 1, without 1.
  number() {
    this.#state = BigInt.asUintN(64, this.#state * MULTIPLIER + INCREMENT);
    return Number(this.#state >> 32n) / 2 ** 32;
  }

  // From 0 to `limit`, without it.
  below(limit) {
    return Math.floor(this.number() * limit);
  }

  chance(probability) {
    return this.number() < probability;
  }

  // One of the list.
  of(list) {
    return list[this.below(list.length)];
  }
}
