// A reporter for node:test that yields one JSON object, {passed, failed}, when every test of the
// process has reported. A process that ends earlier yields nothing, which is how the caller tells.
// A test that was skipped or marked as to do proves nothing, so it counts as failed.

export default async function* testCounts(events) {
  const counts = { passed: 0, failed: 0 };
  for await (const { type, data } of events) {
    if (type !== 'test:pass' && type !== 'test:fail') continue;
    const proved = type === 'test:pass' && data.skip === undefined && data.todo === undefined;
    if (!proved) {
      // A test that failed because a test inside it did was counted with that one.
      if (data.details.error?.failureType !== 'subtestsFailed') counts.failed += 1;
    } else if (data.details.type !== 'suite') {
      counts.passed += 1;
    }
  }
  yield JSON.stringify(counts);
}
