'use strict';

// Runs the application under memcheck and reads what it has to say about the module.

const fs = require('fs');
const path = require('path');
const { temporaryFolder } = require('../../test/helpers/folder');

const MODULE = 'kiv_native.node';

function describe(error) {
  const frames = (error.match(/<frame>[^]*?<\/frame>/g) || []).map((frame) => {
    const part = (name) => (new RegExp(`<${name}>(.*?)</${name}>`).exec(frame) || [])[1];
    return `${part('fn') || '?'} (${part('file') ? `${part('file')}:${part('line')}` : path.basename(part('obj') || '?')})`;
  });
  return `${/<kind>(.*?)<\/kind>/.exec(error)[1]}\n  ${frames.join('\n  ')}`;
}

/** A command line for a Node that is checked, and what was found once it has ended. */
function memcheck() {
  const { path: folder, remove } = temporaryFolder('valgrind');
  const file = path.join(folder, 'report.xml');
  const suppressions = path.join(__dirname, '..', 'valgrind.supp');
  return {
    command: 'valgrind',
    args: [
      '--tool=memcheck',
      '--quiet',
      '--num-callers=50',
      '--leak-check=full',
      '--show-leak-kinds=definite',
      '--keep-debuginfo=yes',
      `--suppressions=${suppressions}`,
      '--xml=yes',
      `--xml-file=${file}`,
      process.execPath,
    ],
    /** One text for each error whose stack passes through the module. */
    findings() {
      const text = fs.readFileSync(file, 'utf8');
      if (!text.includes('</valgrindoutput>')) return ['memcheck: the report has no end'];
      const errors = text.match(/<error>[^]*?<\/error>/g) || [];
      const described = errors.map((error) => ({
        ours: error.includes(`/${MODULE}</obj>`),
        text: describe(error),
      }));
      for (const one of described.filter(({ ours }) => !ours))
        console.log(`elsewhere: ${one.text.split('\n  ').slice(0, 7).join('\n  ')}`);
      console.log(`\nmemcheck: ${errors.length} reports\n`);
      return described.filter(({ ours }) => ours).map((one) => `memcheck: ${one.text}`);
    },
    remove,
  };
}

module.exports = { memcheck };
