// A reporter for node:test that yields one JSON object, {passed, failed, failures}, when every test
// of the process has reported; failures are one text for each failed test. A process that ends
// earlier yields nothing, by which the caller detects it.
// A test that was skipped or marked as to do proves nothing, so it counts as failed.

export default async function* testCounts(events) {
  const counts = { passed: 0, failed: 0, failures: [] };
  for await (const { type, data } of events) {
    if (type !== 'test:pass' && type !== 'test:fail') continue;
    const proved = type === 'test:pass' && data.skip === undefined && data.todo === undefined;
    if (!proved) {
      // A test that failed because a test inside it did was counted with that one.
      const { error } = data.details;
      if (error?.failureType === 'subtestsFailed') continue;
      counts.failed += 1;
      counts.failures.push(`${data.name}: ${error?.cause?.stack ?? error?.cause ?? 'not run'}`);
    } else if (data.details.type !== 'suite') {
      counts.passed += 1;
    }
  }
  yield JSON.stringify(counts);
}
