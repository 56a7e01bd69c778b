// Runs the fuzzers, which clang has built beside the release build.

import { spawnSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';

import { repository } from './build.mjs';

// Each with what it shows when it reports nothing.
export const FUZZERS = [
  ['frame_segment_fuzzer', 'no header of a frame segment leads a reader beyond the segment'],
  [
    'changing_header_fuzzer',
    'no header that changes while it is read leads a reader beyond the segment',
  ],
  ['stream_table_fuzzer', 'no table of the main segment crashes the widget that reads it'],
  ['configuration_fuzzer', 'no configuration text crashes the engine or gives values out of range'],
  ['janus_message_fuzzer', 'nothing that an SFU says crashes the engine that reads it'],
];

// Far above what any run takes beyond the time that it is given: it ends what would never end.
const GRACE_SECONDS = 500;

// Tries `runs` inputs, or as many as `seconds` allow, or only those in `files`, and answers with how
// the fuzzer ended: { status, signal, stderr }.
export function fuzz(fuzzer, { runs = -1, seconds = 0, seed = 0, files = [] }) {
  const artifacts = mkdtempSync(path.join(tmpdir(), 'tessel_fuzz_'));
  try {
    const { status, signal, stderr } = spawnSync(
      path.join(repository, 'build/fuzz/test/fuzz', fuzzer),
      [
        ...[`-runs=${runs}`, `-max_total_time=${seconds}`, `-seed=${seed}`],
        // The lines that the code under test prints on standard output are left out.
        ...['-close_fd_mask=1', `-artifact_prefix=${artifacts}/`, ...files],
      ],
      {
        encoding: 'utf8',
        maxBuffer: Infinity,
        timeout: (seconds + GRACE_SECONDS) * 1000,
        killSignal: 'SIGKILL',
      },
    );
    return { status, signal, stderr };
  } finally {
    rmSync(artifacts, { recursive: true });
  }
}
