#!/usr/bin/env node
'use strict';

// Keep to the syntax of the oldest supported Node.

const USAGE = `usage: kiv_native doctor [--json]

Says what works on this desktop, and what to do about the rest. Changes nothing: takes no
screenshot, asks no question, writes no file.

  --json   one JSON object for a support ticket, without titles, names or paths of the person
  --help   this text

Exit code: 0 when screenshots work, 1 when they do not, 2 for other arguments.
`;

const args = process.argv.slice(2);
const flags = args.slice(1);
if (args.includes('--help') && args.every((arg) => /^(doctor|--json|--help)$/.test(arg))) {
  process.stdout.write(USAGE);
} else if (args[0] !== 'doctor' || flags.length > 1 || (flags[0] || '--json') !== '--json') {
  process.stderr.write(USAGE);
  process.exitCode = 2;
} else {
  const { examine } = require('../src/doctor/examine');
  examine().then(({ report, details }) => {
    process.stdout.write(
      flags.length > 0
        ? `${JSON.stringify(report, null, 2)}\n`
        : require('../src/doctor/text').describe(report, details),
    );
    process.exitCode = report.screenshots.work ? 0 : 1;
  });
}
