'use strict';

// Runs the application under memcheck and reads what it has to say about the module.

const fs = require('fs');
const path = require('path');
const { temporaryFolder } = require('../../test/lib/processes');

const file = path.join(temporaryFolder(), 'report.xml');
const under = [
  'valgrind',
  '--tool=memcheck',
  '--quiet',
  '--num-callers=50',
  '--leak-check=full',
  '--show-leak-kinds=definite',
  '--keep-debuginfo=yes',
  `--suppressions=${path.join(__dirname, '..', 'valgrind.supp')}`,
  '--xml=yes',
  `--xml-file=${file}`,
];

/** One text for each error whose stack passes through the module. */
function findings() {
  const text = fs.readFileSync(file, 'utf8');
  if (!text.includes('</valgrindoutput>')) return ['memcheck: the report has no end'];
  const errors = text.match(/<error>[\s\S]*?<\/error>/g) || [];
  console.log(`memcheck: ${errors.length} reports\n`);
  return errors
    .filter((error) => error.includes('/kiv_native.node</obj>'))
    .map((error) => `memcheck: ${error.match(/<kind>.*|<fn>.*|<file>.*|<line>.*/g).join(' ')}`);
}

module.exports = { findings, under };
