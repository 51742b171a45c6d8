'use strict';

const { execFileSync } = require('child_process');
const fs = require('fs');

let library = null;

/** What a process that loads the sanitizer build needs; empty in other runs. */
function sanitizerEnv({ leaks = true } = {}) {
  if (process.env.KIV_SANITIZE !== '1') return {};
  if (!library) {
    const name = execFileSync('g++', ['-print-file-name=libasan.so'], { encoding: 'utf8' }).trim();
    library = fs.realpathSync(name);
  }
  return {
    LD_PRELOAD: library,
    ASAN_OPTIONS: `detect_leaks=${leaks ? 1 : 0}:exitcode=99:fast_unwind_on_malloc=0`,
    UBSAN_OPTIONS: 'print_stacktrace=1:halt_on_error=1',
  };
}

module.exports = { sanitizerEnv };
