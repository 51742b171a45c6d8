// The first lines of a case with a stand-in compositor in its own process: `kind` is 'gnome' or
// 'kwin'. Its answers come from another thread, so the case may block in the module.
/* global bus, internals, kiv */
const fs = require('fs');

const SERVICES = {
  gnome: ['org.gnome.Shell.Screenshot', '/org/gnome/Shell/Screenshot', 'org.gnome.Shell.Screenshot', 'Screenshot'],
  kwin: ['org.kde.KWin', '/Screenshot', 'org.kde.kwin.Screenshot', 'screenshotFullscreen'],
};
const INTROSPECTABLE = 'org.freedesktop.DBus.Introspectable';

const log = [];
for (const one of [kiv, internals]) one.setupLogger((level, text) => log.push(`${level} ${text}`));
bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);

const answer = (kind, member, how) => bus.answer(SERVICES[kind][1], SERVICES[kind][2], member, how);
const argumentsOf = (kind, member) => bus.argumentsOf(SERVICES[kind][1], SERVICES[kind][2], member);
const probe = (kind, how) => {
  bus.own(SERVICES[kind][0]);
  bus.answer(SERVICES[kind][1], INTROSPECTABLE, 'Introspect', how);
};
const probesOf = (kind) => bus.calls(SERVICES[kind][1], INTROSPECTABLE, 'Introspect');
const probeFails = (kind) => probe(kind, { error: 'org.freedesktop.DBus.Error.UnknownObject', body: 'no' });
/** A service that answers the probe, and its whole-desktop method as told. */
const serve = (kind, how = {}) => {
  probe(kind, { body: "('<node/>',)" });
  answer(kind, SERVICES[kind][3], Object.assign({ body: kind === 'gnome' ? "(true, '')" : "('/nonexistent',)" }, how));
};

const inTmp = (name) => `${process.env.TMPDIR}/${name}`;
/** Puts bytes into a file that stays, for a service to copy. */
const keep = (bytes) => {
  fs.writeFileSync(`${process.env.HOME}/kept`, bytes);
  return `${process.env.HOME}/kept`;
};

/** A PNG, or the start of one that claims a size, `bytes` long. */
const png = (width, height, bytes) => {
  const [realWidth, realHeight] = bytes ? [64, 48] : [width, height];
  const file = internals.encode(realWidth, realHeight, 0, 0, false, false, 0).image;
  file.writeUInt32BE(width, 16);
  file.writeUInt32BE(height, 20);
  return bytes ? file.slice(0, bytes) : file;
};
/** The header of a Windows bitmap that claims a size, and a little of its pixels. */
const bitmap = (width, height) => {
  const file = Buffer.alloc(1000);
  file.write('BM');
  file.writeUInt32LE(54 + width * height * 3, 2);
  [54, 40, width, height].forEach((value, i) => file.writeUInt32LE(value, 10 + 4 * i));
  file.set([1, 0, 24, 0], 26);
  return file;
};
