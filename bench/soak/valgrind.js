'use strict';

// Runs the application under memcheck and reads what it has to say about the module.

const fs = require('fs');
const path = require('path');
const { temporaryFolder } = require('../../test/helpers/folder');

const MODULE = 'kiv_native.node';

/** A command line for a Node that is checked, and what was found once it has ended. */
function memcheck() {
  const { path: folder, remove } = temporaryFolder('valgrind');
  const file = path.join(folder, 'report.xml');
  const suppressions = path.join(__dirname, '..', 'valgrind.supp');
  return {
    command: 'valgrind',
    args: ['--tool=memcheck', '--quiet', '--num-callers=50', '--leak-check=full', '--show-leak-kinds=definite',
      '--keep-debuginfo=yes', `--suppressions=${suppressions}`, '--xml=yes', `--xml-file=${file}`, process.execPath],
    /** One text for each error whose stack passes through the module. */
    findings() {
      const errors = fs.readFileSync(file, 'utf8').match(/<error>[^]*?<\/error>/g) || [];
      console.log(`memcheck: ${errors.length} reports, those of libraries among themselves included\n`);
      return errors.filter((error) => error.includes(`/${MODULE}</obj>`)).map((error) => {
        const kind = /<kind>(.*?)<\/kind>/.exec(error)[1];
        const frames = (error.match(/<frame>[^]*?<\/frame>/g) || []).map((frame) => {
          const part = (name) => (new RegExp(`<${name}>(.*?)</${name}>`).exec(frame) || [])[1];
          return `${part('fn') || '?'} (${part('file') ? `${part('file')}:${part('line')}` : path.basename(part('obj') || '?')})`;
        });
        return `memcheck: ${kind}\n  ${frames.join('\n  ')}`;
      });
    },
    remove,
  };
}

module.exports = { memcheck };
