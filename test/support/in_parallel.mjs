// Runs the jobs, functions, two at a time. Starts no further job when one has failed.

const AT_ONCE = 2;

export async function inParallel(jobs, atOnce = AT_ONCE) {
  const left = [...jobs];
  const work = async () => {
    for (let job = left.shift(); job; job = left.shift()) {
      try {
        await job();
      } catch (error) {
        left.length = 0;
        throw error;
      }
    }
  };
  await Promise.all(Array.from({ length: atOnce }, work));
}
