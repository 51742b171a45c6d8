'use strict';

const x11 = require('x11');
const { until } = require('./processes');

const CARDINALS = (...values) => Buffer.from(new Uint32Array(values).buffer);
const ESCAPE = 9;

/** A client of an X server: windows, properties, pictures, and the person's hands. */
async function openDisplay(display) {
  const { client: X, screen } = await new Promise((resolve, reject) => {
    x11.createClient({ display }, (error, opened) => (error ? reject(error) : resolve(opened)));
  }).then((opened) => ({ client: opened.client, screen: opened.screen }));
  X.on('error', () => {}); // windows of others die at any time
  X.atoms = { ...X.atoms }; // the library keeps one table for all servers
  const ask = (request, ...args) =>
    new Promise((resolve, reject) => {
      X[request](...args, (error, value) => (error ? reject(error) : resolve(value)));
    });
  const extension = (name) =>
    new Promise((resolve, reject) => {
      X.require(name, (error, value) => (error ? reject(error) : resolve(value)));
    });
  const test = await extension('xtest');
  const { root } = screen[0];
  const screens = screen.map((one) => one.root);
  const atom = (name) => ask('InternAtom', false, name);
  const fake = (type, detail, x = 0, y = 0) => test.FakeInput(type, detail, 0, root, x, y);
  const x = {
    root,
    screens,
    atom,
    sync: () => ask('GetInputFocus'),
    close: () => X.terminate(),
    createWindow({
      x: left = 0,
      y = 0,
      width = 300,
      height = 200,
      color = 0x336699,
      override = false,
      screen: i = 0,
    } = {}) {
      const id = X.AllocID();
      X.CreateWindow(id, screens[i], left, y, width, height, 0, 0, 1, 0, {
        backgroundPixel: color,
        overrideRedirect: override,
        eventMask: 0,
      });
      return id;
    },
    map: (id) => X.MapWindow(id),
    unmap: (id) => X.UnmapWindow(id),
    destroy: (id) => X.DestroyWindow(id),
    place: (id, left, y, width, height) => X.ConfigureWindow(id, { x: left, y, width, height }),
    /** A large value arrives in pieces, as large values do. */
    async setProperty(id, name, type, format, value) {
      const data = Buffer.from(value);
      const [property, kind] = [await atom(name), await atom(type)];
      for (let at = 0; at === 0 || at < data.length; at += 200000) {
        X.ChangeProperty(
          at === 0 ? 0 : 2,
          id,
          property,
          kind,
          format,
          data.subarray(at, at + 200000),
        );
      }
      return x.sync();
    },
    deleteProperty: async (id, name) => {
      X.DeleteProperty(id, await atom(name));
      return x.sync();
    },
    /** The bytes; empty when there is none. */
    getProperty: async (id, name) =>
      (await ask('GetProperty', 0, id, await atom(name), 0, 0, 1000000)).data,
    async message(id, type, ...data) {
      const event = Buffer.alloc(32);
      event.set([33, 32]);
      event.writeUInt32LE(id, 4);
      event.writeUInt32LE(await atom(type), 8);
      for (const [i, value] of data.entries()) event.writeUInt32LE(value, 12 + 4 * i);
      return event;
    },
    async activate(id) {
      const event = await x.message(id, '_NET_ACTIVE_WINDOW', 2);
      X.SendEvent(root, false, 0x180000, event);
      return x.sync();
    },
    /** As a window manager does. */
    async closeWindow(id) {
      const event = await x.message(id, 'WM_PROTOCOLS', await atom('WM_DELETE_WINDOW'));
      X.SendEvent(id, false, 0, event);
      return x.sync();
    },
    /** A managed window with the focus. */
    async activeWindow({ title, pid, ...rest } = {}) {
      const id = x.createWindow({ x: 50, y: 50, ...rest });
      // Placed by the user: a window manager leaves it there.
      const hints = CARDINALS(1, ...Array(17).fill(0));
      await x.setProperty(id, 'WM_NORMAL_HINTS', 'WM_SIZE_HINTS', 32, hints);
      if (title !== undefined) await x.setProperty(id, '_NET_WM_NAME', 'UTF8_STRING', 8, title);
      if (pid) await x.setProperty(id, '_NET_WM_PID', 'CARDINAL', 32, CARDINALS(pid));
      x.map(id);
      await until(async () => (await x.getProperty(id, 'WM_STATE')).length, 'a managed window');
      await x.activate(id);
      const active = () => x.getProperty(root, '_NET_ACTIVE_WINDOW');
      await until(
        async () => (await active()).subarray(0, 4).equals(CARDINALS(id)),
        'an active window',
      );
      return id;
    },
    geometry: async (id) => {
      const { width, height } = await ask('GetGeometry', id);
      const { destX, destY } = await ask('TranslateCoordinates', id, root, 0, 0);
      return { x: destX, y: destY, width, height };
    },
    parent: async (id) => (await ask('QueryTree', id)).parent,
    children: async (id) => (await ask('QueryTree', id)).children,
    viewable: async (id) => (await ask('GetWindowAttributes', id)).mapState === 2,
    focused: async () => (await ask('GetInputFocus')).focus,
    /** BGRX pixels of the screen. */
    image: async (left, y, width, height) =>
      (await ask('GetImage', 2, root, left, y, width, height, 0xffffffff)).data.subarray(
        0,
        width * height * 4,
      ),
    /** 0xrrggbb of one pixel of the screen. */
    pixel: async (left, y) => (await x.image(left, y, 1, 1)).readUInt32LE(0) & 0xffffff,
    draw(id, width, height, data) {
      const gc = X.AllocID();
      X.CreateGC(gc, id, {});
      const rows = Math.floor(200000 / (width * 4));
      for (let row = 0; row < height; row += rows) {
        const count = Math.min(rows, height - row);
        X.PutImage(
          2,
          id,
          gc,
          width,
          count,
          0,
          row,
          0,
          24,
          data.subarray(row * width * 4, (row + count) * width * 4),
        );
      }
      X.FreeGC(gc);
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
    /** Number of resources of each kind that a window's client holds on the server. */
    async resources(id) {
      const res = await extension('res');
      const types = await new Promise((resolve, reject) => {
        res.QueryClientResources(id, (error, value) => (error ? reject(error) : resolve(value)));
      });
      const named = await Promise.all(
        types.map(async ({ resourceType, count }) => [
          await ask('GetAtomName', resourceType),
          count,
        ]),
      );
      return Object.fromEntries(named);
    },
  };
  return x;
}

module.exports = { CARDINALS, ESCAPE, openDisplay };
