'use strict';

// Runs in the process that loads the module: report() hands the facts to demo.js.
/* global host, kiv, report, until, X */

const fs = require('fs');
const path = require('path');
const { selectRectangle } = require('./selection');

const WINDOWS = [
  {
    title: 'Quarterly figures.ods — Calc',
    x: 120,
    y: 90,
    width: 900,
    height: 560,
    color: 0xf4f1ea,
    accent: 0x2a6f4e,
  },
  {
    title: 'Inbox (3)',
    x: 1150,
    y: 200,
    width: 620,
    height: 640,
    color: 0xffffff,
    accent: 0x30589c,
  },
  {
    title: 'notes.txt — Editor',
    x: 480,
    y: 430,
    width: 820,
    height: 520,
    color: 0x20242c,
    accent: 0xd9a441,
  },
];

// Something to look at: a bar and lines of "text".
function decorate(client, id, { width, height, accent }) {
  client.fillRect(id, 0, 0, width, 36, accent);
  for (let y = 60, line = 0; y < height - 20; y += 22, ++line) {
    client.fillRect(id, 24, y, Math.max(60, (line * 7919) % (width - 80)), 9, accent);
  }
}

async function openWindows() {
  const client = X.open(process.env.DISPLAY);
  for (const window of WINDOWS) {
    const id = client.createWindow(window);
    client.setProperty(id, '_NET_WM_NAME', 'UTF8_STRING', 8, Buffer.from(window.title));
    client.setProperty(
      id,
      '_NET_WM_PID',
      'CARDINAL',
      32,
      Buffer.from(new Uint32Array([process.pid]).buffer),
    );
    client.map(id);
    client.sync();
    await until(() => client.getProperty(id, 'WM_STATE'), { what: 'a managed window' });
    client.moveResize(id, window.x, window.y, window.width, window.height);
    client.activate(id);
    await until(
      () => {
        const active = client.getProperty(client.rootWindow(0), '_NET_ACTIVE_WINDOW');
        return active && active.count === 1 && active.data.readUInt32LE(0) === id;
      },
      { what: 'an active window' },
    );
    client.sync();
    decorate(client, id, window);
  }
  client.sync();
  return client;
}

function save(folder, name, call, snap) {
  const file = `${name}-${snap.filename}`;
  const thumbnail = `${name}-thumbnail-${snap.filename}`;
  fs.writeFileSync(path.join(folder, file), snap.data);
  fs.writeFileSync(path.join(folder, thumbnail), snap.dataThumbnail);
  return {
    call,
    file,
    thumbnail,
    width: snap.width,
    height: snap.height,
    bytes: snap.data.length,
    filename: snap.filename,
    title: snap.activeWindowTitle,
    process: snap.activeProcessName.split('\0').join(' ').trim(),
  };
}

// A rectangle dragged out with a real pointer: the overlay while hovering and dragging, the cut-out.
async function saveSelection(folder, client) {
  const { errorCode, ...pictures } = await selectRectangle(client, {
    x: 300,
    y: 250,
    width: 700,
    height: 420,
  });
  if (errorCode !== 0) throw new Error(`the selection ended with ${errorCode}`);
  return Object.entries(pictures).map(([name, data]) => {
    const file = `selection-${name}.png`;
    fs.writeFileSync(path.join(folder, file), data);
    return { name, file, bytes: data.length };
  });
}

module.exports = async (folder) => {
  const log = [];
  host.startLoop();
  kiv.setupLogger((level, text) => log.push([level, text]));
  kiv.init();
  const windows = process.env.KIV_DEMO_WINDOWS ? await openWindows() : null;
  const snapshots = [
    save(folder, 'desktop', 'getScreenSnap("desktop", true)', kiv.getScreenSnap('desktop', true)),
    save(folder, 'desktop', 'getScreenSnap("desktop", false)', kiv.getScreenSnap('desktop', false)),
    save(folder, 'display', 'getScreenSnap("display", true)', kiv.getScreenSnap('display', true)),
  ];
  const selection = windows ? await saveSelection(folder, windows) : [];
  report({ snapshots, selection, log });
  if (windows) windows.close();
  kiv.teardown();
};
