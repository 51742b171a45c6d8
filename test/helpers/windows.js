'use strict';

// Windows for cases: old syntax.
/* global X, until */

/**
 * Maps a managed window and waits until it is the active one. `title` may be a string or a Buffer;
 * `properties` are [name, type, format, buffer]. Returns { client, id, close() }.
 */
async function activeWindow({ title, pid, x = 50, y = 50, width = 300, height = 200, properties = [] }) {
  const client = X.open(process.env.DISPLAY);
  const id = client.createWindow({ x, y, width, height, color: 0x336699 });
  if (title !== undefined) {
    client.setProperty(id, '_NET_WM_NAME', 'UTF8_STRING', 8, Buffer.from(title));
  }
  if (pid !== undefined) {
    client.setProperty(id, '_NET_WM_PID', 'CARDINAL', 32, Buffer.from(new Int32Array([pid]).buffer));
  }
  for (const [name, type, format, data] of properties) client.setProperty(id, name, type, format, data);
  client.map(id);
  client.sync();
  const active = () => {
    const property = client.getProperty(client.rootWindow(0), '_NET_ACTIVE_WINDOW');
    // One window manager (xfwm4 4.18) writes two items.
    return property && property.count >= 1 && property.data.readUInt32LE(0) === id;
  };
  await until(() => client.getProperty(id, 'WM_STATE'), { what: 'a managed window' });
  client.activate(id);
  await until(active, { what: 'an active window' });
  return { client, id, close: () => client.close() };
}

/** Makes the root window name no active window; a window manager may leave a dead one there. */
function forgetActiveWindow() {
  const client = X.open(process.env.DISPLAY);
  client.deleteProperty(client.rootWindow(0), '_NET_ACTIVE_WINDOW');
  client.sync();
  client.close();
}

module.exports = { activeWindow, forgetActiveWindow };
