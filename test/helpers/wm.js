'use strict';

const { startCase } = require('./case');
const { baseEnv, start, untilReady } = require('./processes');

/* global X, until */
// A window mapped while the window manager starts may be missed: map it anew until one is taken.
const probe = async () => {
  const client = X.open(process.env.DISPLAY);
  const root = client.rootWindow(0);
  const managed = (id) => {
    const state = client.getProperty(id, 'WM_STATE');
    return state && state.count > 0;
  };
  await until(() => client.getProperty(root, '_NET_SUPPORTING_WM_CHECK'), { what: 'a window manager' });
  await until(async () => {
    const id = client.createWindow({ x: 0, y: 0, width: 20, height: 20 });
    client.map(id);
    try {
      return await until(() => managed(id), { timeout: 500, what: 'a managed window' });
    } catch (error) {
      return false;
    } finally {
      client.destroy(id);
    }
  }, { what: 'a window that is managed' });
  await until(() => {
    const listed = client.getProperty(root, '_NET_CLIENT_LIST');
    return !listed || listed.count === 0;
  }, { what: 'the probe window to be gone' });
  client.close();
};

/** Resolves once the window manager takes windows; `display` is ':N' or a session's env. */
async function startWindowManager(display, name = 'openbox') {
  const env = typeof display === 'string' ? { ...baseEnv(), DISPLAY: display } : display;
  const manager = start(name, [], { env });
  const probing = startCase(probe, { env });
  try {
    await untilReady(manager, () => probing.result, 'a window that it manages', 30000);
  } finally {
    await probing.stop();
  }
  const { code, stderr } = await probing.done;
  if (code === 0) return { pid: manager.pid, stop: manager.stop };
  await manager.stop();
  throw new Error(`${name} does not manage windows: ${stderr}\n${manager.output}`);
}

module.exports = { startWindowManager };
