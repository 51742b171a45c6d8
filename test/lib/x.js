'use strict';

const { promisify } = require('util');
const x11 = require('x11');
const { until } = require('./processes');

const CARDINALS = (...values) => Buffer.from(new Uint32Array(values).buffer);
const ESCAPE = 9;

/** A client of an X server: windows, properties, pictures and simulated input. */
async function openDisplay(display) {
  const { client: X, screen } = await promisify(x11.createClient)({ display });
  X.atoms = { ...X.atoms }; // the library would use one server's for the next
  X.on('error', () => {}); // other clients' windows may be destroyed at any time
  const ask = (request, ...args) => promisify(X[request]).apply(X, args);
  const [test, res] = [await ask('require', 'xtest'), await ask('require', 'res')];
  const { root } = screen[0];
  const atom = (name) => ask('InternAtom', false, name);
  const fake = (type, detail, left = 0, y = 0) => test.FakeInput(type, detail, 0, root, left, y);
  const send = async (to, mask, wid, type, ...data) => {
    const event = { type: 33, format: 32, wid, message_type: await atom(type), data };
    X.SendEvent(to, false, mask, event);
    return x.sync();
  };
  const x = {
    root,
    sync: () => ask('GetInputFocus'),
    close: () => X.terminate(),
    createWindow(options = {}) {
      const { x: left = 0, y = 0, width = 300, height = 200 } = options;
      const { color = 0x336699, override = false } = options;
      const id = X.AllocID();
      const values = { backgroundPixel: color, overrideRedirect: override };
      X.CreateWindow(id, root, left, y, width, height, 0, 0, 1, 0, values);
      return id;
    },
    map: (id) => X.MapWindow(id),
    unmap: (id) => X.UnmapWindow(id),
    destroy: (id) => X.DestroyWindow(id),
    place: (id, left, y, width, height) => X.ConfigureWindow(id, { x: left, y, width, height }),
    /** Sends a large value in pieces, as clients do. */
    async setProperty(id, name, type, format, value) {
      const data = Buffer.from(value);
      const [property, kind] = [await atom(name), await atom(type)];
      for (let at = 0; at === 0 || at < data.length; at += 200000) {
        const piece = data.subarray(at, at + 200000);
        X.ChangeProperty(at === 0 ? 0 : 2, id, property, kind, format, piece);
      }
      return x.sync();
    },
    deleteProperty: async (id, name) => {
      X.DeleteProperty(id, await atom(name));
      return x.sync();
    },
    /** The bytes; empty without the property. */
    getProperty: async (id, name) =>
      (await ask('GetProperty', 0, id, await atom(name), 0, 0, 1000000)).data,
    activate: (id) => send(root, 0x180000, id, '_NET_ACTIVE_WINDOW', 2),
    /** Asks the window to close, as a window manager does. */
    closeWindow: async (id) => send(id, 0, id, 'WM_PROTOCOLS', await atom('WM_DELETE_WINDOW')),
    /** Creates a managed window with the focus. */
    async activeWindow({ title, pid, ...rest } = {}) {
      const id = x.createWindow({ x: 50, y: 50, ...rest });
      // A position chosen by the user, which window managers keep.
      const hints = CARDINALS(1, ...Array(17).fill(0));
      await x.setProperty(id, 'WM_NORMAL_HINTS', 'WM_SIZE_HINTS', 32, hints);
      if (title !== undefined) await x.setProperty(id, '_NET_WM_NAME', 'UTF8_STRING', 8, title);
      if (pid) await x.setProperty(id, '_NET_WM_PID', 'CARDINAL', 32, CARDINALS(pid));
      x.map(id);
      await until(async () => (await x.getProperty(id, 'WM_STATE')).length, 'a managed window');
      await x.activate(id);
      const active = () => x.getProperty(root, '_NET_ACTIVE_WINDOW');
      await until(async () => (await active()).equals(CARDINALS(id)), 'an active window');
      return id;
    },
    async geometry(id) {
      const { width, height } = await ask('GetGeometry', id);
      const at = await ask('TranslateCoordinates', id, root, 0, 0);
      return { x: at.destX, y: at.destY, width, height };
    },
    parent: async (id) => (await ask('QueryTree', id)).parent,
    children: async (id) => (await ask('QueryTree', id)).children,
    viewable: async (id) => (await ask('GetWindowAttributes', id)).mapState === 2,
    focused: async () => (await ask('GetInputFocus')).focus,
    /** BGRX pixels of the screen. */
    async image(left, y, width, height) {
      const { data } = await ask('GetImage', 2, root, left, y, width, height, 0xffffffff);
      return data.subarray(0, width * height * 4);
    },
    /** 0xrrggbb of one pixel of the screen. */
    pixel: async (left, y) => (await x.image(left, y, 1, 1)).readUInt32LE(0) & 0xffffff,
    draw(id, width, height, data) {
      const gc = X.AllocID();
      X.CreateGC(gc, id, {});
      // A request cannot hold a large picture.
      for (let row = 0; row < height; row += 500) {
        const piece = data.subarray(row * width * 4, (row + 500) * width * 4);
        X.PutImage(2, id, gc, width, piece.length / width / 4, 0, row, 0, 24, piece);
      }
      X.FreeGC(gc);
    },
    /** Sets the picture behind all windows. */
    async wallpaper(width, height, data) {
      const pixmap = X.AllocID();
      X.CreatePixmap(pixmap, root, 24, width, height);
      x.draw(pixmap, width, height, data);
      X.ChangeWindowAttributes(root, { backgroundPixmap: pixmap });
      X.ClearArea(root, 0, 0, 0, 0, 0);
      return x.sync();
    },
    moveTo: (left, y) => fake(test.MotionNotify, 0, left, y),
    press: (button = 1) => fake(test.ButtonPress, button),
    release: (button = 1) => fake(test.ButtonRelease, button),
    click(button = 1) {
      x.press(button);
      x.release(button);
    },
    key(code = 38) {
      fake(test.KeyPress, code);
      fake(test.KeyRelease, code);
    },
    /** All clients of the server, as resources() takes them. */
    clients: async () => (await promisify(res.QueryClients)()).map((client) => client.resourceBase),
    /** Number of resources of each kind that a window's client has on the server. */
    async resources(id) {
      const counts = {};
      for (const { resourceType, count } of await promisify(res.QueryClientResources)(id))
        counts[await ask('GetAtomName', resourceType)] = count;
      return counts;
    },
  };
  return x;
}

module.exports = { CARDINALS, ESCAPE, openDisplay };
