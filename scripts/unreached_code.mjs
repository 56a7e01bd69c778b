// node scripts/unreached_code.mjs COVERAGE.json
//
// Prints the lines that no test ran and the lines with a branch that no test took, as gcovr has
// counted them, each with its source.

import { readFileSync } from 'node:fs';

const { files } = JSON.parse(readFileSync(process.argv[2], 'utf8'));

function unreachedPartOf({ count, branches }) {
  if (count === 0) return 'never run';
  const taken = branches.filter((branch) => branch.count > 0).length;
  return taken < branches.length ? `${taken} of ${branches.length} branches taken` : undefined;
}

console.log('Not reached:');
for (const { file, lines } of files) {
  const source = readFileSync(file, 'utf8').split('\n');
  for (const line of lines) {
    if (line['gcovr/noncode'] || line['gcovr/excluded']) continue;
    const part = unreachedPartOf(line);
    if (!part) continue;
    const { line_number: number } = line;
    console.log(`  ${file}:${number}: ${part}: ${source[number - 1].trim()}`);
  }
}
