// The first lines of a case with a stand-in compositor in its own process: `kind` is 'gnome' or
// 'kwin'. Its answers come from another thread, so the case may block in the module.
/* global bus, internals, kiv */
const fs = require('fs');
const zlib = require('zlib');

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

const crc = (bytes) => {
  let sum = ~0;
  for (const byte of bytes) {
    sum ^= byte;
    for (let bit = 0; bit < 8; ++bit) sum = sum & 1 ? (sum >>> 1) ^ 0xedb88320 : sum >>> 1;
  }
  return ~sum >>> 0;
};
/** A PNG of noise that claims a size; `bytes` is how much of its pixels there is. */
const png = (width, height, bytes = height * (1 + width * 3)) => {
  const chunk = (type, data) => {
    const all = Buffer.alloc(12 + data.length);
    all.writeUInt32BE(data.length, 0);
    all.write(type, 4);
    data.copy(all, 8);
    all.writeUInt32BE(crc(all.slice(4, -4)), all.length - 4);
    return all;
  };
  const header = Buffer.alloc(13);
  header.writeUInt32BE(width, 0);
  header.writeUInt32BE(height, 4);
  header.set([8, 2], 8);
  const pixels = Buffer.alloc(bytes);
  for (let i = 0; i < bytes; ++i) pixels[i] = i % (1 + width * 3) ? (i * 2654435761) >>> 24 : 0;
  return Buffer.concat([Buffer.from('89504e470d0a1a0a', 'hex'), chunk('IHDR', header),
    chunk('IDAT', zlib.deflateSync(pixels)), chunk('IEND', Buffer.alloc(0))]);
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
