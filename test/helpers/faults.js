'use strict';

const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { startCase } = require('./case');
const { gdbus } = require('./compositors');
const { alive } = require('./processes');
const { look } = require('./suite');
const { until } = require('./until');

/* global X */
// A case's first lines: what it holds, and where it stands still until the fault has happened.
const HELD = `
  const fs = require('fs');
  const count = (folder) => fs.readdirSync(folder).length;
  const windows = () => {
    let client;
    try { client = X.open(process.env.DISPLAY); } catch (error) { return 0; }
    const { resources } = client.resourcesOfProcess(process.pid);
    client.close();
    return resources.WINDOW || 0;
  };
  const held = () => ({ windows: windows(), descriptors: count('/proc/self/fd'), threads: count('/proc/self/task'),
    files: count(process.env.TMPDIR), memory: Math.round(process.memoryUsage().rss / 2 ** 20) });
  const fault = () => { report('ready'); return until(() => fs.existsSync(GO), { what: 'the fault' }); };
  /** Waits until no more is held than before, memory within what a runtime keeps for itself. */
  const released = (before) => until(() => Object.entries(held()).every(([name, now]) =>
    now <= before[name] + (name === 'memory' ? 32 : 0)))
    .catch(() => { throw new Error(JSON.stringify(before) + ' became ' + JSON.stringify(held())); });
`;

let stood = 0;

/** A case that awaits fault() once: resolves when it does so. `go()` lets it go on. */
async function standing(source, options) {
  const file = path.join(options.env.HOME, `go-${++stood}`);
  const started = startCase(`const GO = '${file}'; ${HELD} { ${source} }`, options);
  await started.reported(1);
  started.go = () => fs.writeFileSync(file, '');
  return started;
}

/** Runs rows, a few at a time; all of them, also when one fails. */
async function inTurns(rows, work, width = 4) {
  const waiting = [...rows];
  const failures = [];
  const worker = async () => {
    for (let row = waiting.shift(); row; row = waiting.shift()) {
      await work(row).catch((error) => failures.push(error));
    }
  };
  await Promise.all(Array.from({ length: width }, worker));
  if (failures.length > 0) throw new Error(failures.map(({ message }) => message).join('\n\n'));
}

async function namesOn({ env }) {
  const list = await gdbus(env, 'org.freedesktop.DBus', '/', 'org.freedesktop.DBus.ListNames');
  return (list.match(/'[^']+'/g) || []).length;
}

function processesOf({ env }) {
  const mine = `TMPDIR=${env.TMPDIR}`;
  return fs.readdirSync('/proc').filter((name) => /^\d+$/.test(name)).filter((pid) => {
    try {
      return fs.readFileSync(`/proc/${pid}/environ`, 'latin1').split('\0').includes(mine);
    } catch (error) {
      return false; // ended, or somebody else's
    }
  }).map(Number).filter(alive);
}

/** What a session's processes have: to be taken before they run and handed to nothingLeft(). */
const whatIsThere = async (session) => ({ names: await namesOn(session), processes: processesOf(session).length });

/** Waits until ended cases have left nothing on the server, the bus, the machine and in its files. */
async function nothingLeft(session, before, pids = []) {
  await until(() => processesOf(session).length <= before.processes, { what: 'the processes to be gone' });
  await until(async () => await namesOn(session) <= before.names, { what: 'the bus names to be gone' });
  assert.deepStrictEqual(fs.readdirSync(session.env.TMPDIR), []);
  if (pids.length === 0) return;
  assert.deepStrictEqual(await look(async (...ended) => {
    const client = X.open(process.env.DISPLAY);
    const left = () => ended.filter((pid) => client.resourcesOfProcess(pid).connections > 0);
    await until(() => left().length === 0).catch(() => {});
    report(left());
  }, { env: session.env, args: pids }), [], 'processes with connections to the X server');
}

module.exports = { HELD, inTurns, nothingLeft, standing, whatIsThere };
