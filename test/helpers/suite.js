'use strict';

const assert = require('assert');
const fs = require('fs');
const { after, before } = require('node:test');
const { runCase } = require('./case');
const { startSession } = require('./session');

const STAND_IN = fs.readFileSync(require.resolve('./stand-in.js'), 'utf8');
const HOSTED = `
  const { activeWindow } = require('./windows');
  const { ESCAPE, act, findOverlay, key, openSelection, settle } = require('./overlay');
  host.startLoop();
  const log = [];
  kiv.setupLogger((level, text) => log.push(level + ' ' + text));
  kiv.init();
  const client = X.open(process.env.DISPLAY);`;

const call = (source) => (typeof source === 'function' ? `await (${source})(...args);` : source);
/** A case that sees what helpers/stand-in.js defines. */
const withStandIn = (source) => `${STAND_IN}\n${call(source)}`;
/** A case with a loop, the module set up, its lines in `log`, and a `client` of the X server. */
const withHost = (source) => `${HOSTED}\ntry { ${call(source)} } finally { client.close(); kiv.teardown(); }`;

async function look(source, options) {
  const result = await runCase(source, options);
  assert.ok(result.code === 0 && result.json !== undefined, `${result.code} ${result.signal}\n${result.stderr}`);
  return result.json;
}

/**
 * One session for the tests of a file or of a describe block: `session` is there once they run,
 * `run` is runCase in it; `look`, `hosted` and `standIn` resolve to the last report of a case that
 * has to end well.
 */
function share(options, start = startSession) {
  const shared = { session: null };
  before(async () => { shared.session = await start(options); });
  after(() => shared.session && shared.session.stop());
  const inside = (more) => ({ env: shared.session.env, ...more });
  shared.run = (source, more) => runCase(source, inside(more));
  shared.look = (source, more) => look(source, inside(more));
  shared.hosted = (source, more) => look(withHost(source), inside(more));
  shared.standIn = (source, more) => look(withStandIn(source), inside(more));
  return shared;
}

/** The same for a session that only `body` needs. */
async function inSession(options, body, start = startSession) {
  const session = await start(options);
  try {
    await body(session);
  } finally {
    await session.stop();
  }
}

module.exports = { inSession, look, share, withHost, withStandIn };
