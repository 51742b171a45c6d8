'use strict';

// Saves a picture of the desktop every minute from a process that never waits for it, as the
// interface of an application must not.
//   node examples/snapshot-in-child FOLDER [--every SECONDS] [--png]

const { openSnapshots } = require('./snapshots');

function readOptions(args) {
  const options = { folder: '', every: 60, png: false };
  for (let i = 0; i < args.length; ++i) {
    if (args[i] === '--png') options.png = true;
    else if (args[i] === '--every') options.every = Number(args[++i]);
    else if (!options.folder && args[i][0] !== '-') options.folder = args[i];
    else return null;
  }
  return options.folder && options.every >= 1 && options.every <= 86400 ? options : null;
}

const options = readOptions(process.argv.slice(2));
if (!options) {
  console.error('usage: snapshot-in-child FOLDER [--every SECONDS] [--png]');
  process.exit(2);
}

const snapshots = openSnapshots(options.folder);

async function save() {
  try {
    const { ScreenFullPath, width, height } = await snapshots.take('desktop', !options.png);
    console.log(`${ScreenFullPath}: ${width} x ${height}`);
  } catch (error) {
    console.error(error.message);
  }
}

save();
const timer = setInterval(save, options.every * 1000);

function stop() {
  clearInterval(timer);
  snapshots.close();
}
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.once(signal, stop);
