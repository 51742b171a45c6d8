'use strict';

// A snapshot beside the bare library calls, on X11 and through a compositor's service that takes no
// time itself. node bench/snapshot.js [--quick]

const fs = require('fs');
const { connect } = require('../test/lib/bus');
const { inSession, run, table } = require('./measure');
const { pixels } = require('./pictures');

const SHELL = 'org.gnome.Shell.Screenshot';

// Both in one process, taking turns.
const time = (app, ...args) =>
  app.run(
    (kind, jpeg, rounds) => {
      const subjects = {
        reference: () => reference[kind](jpeg),
        module: () => kiv.getScreenSnap('desktop', jpeg),
      };
      reference.reserve(3840 * 2160 * 4);
      if (subjects.module().width === 0) throw new Error(log.join('\n'));
      measure.interleaved(subjects, 1);
      const { module, reference: bare } = measure.interleaved(subjects, rounds);
      return { module: measure.median(module), bare: measure.median(bare) };
    },
    ...args,
  );

const row = (source, [width, height], jpeg, { module, bare }) => ({
  source,
  screen: `${width}x${height}`,
  format: jpeg ? 'JPEG' : 'PNG',
  'module ms': module.toFixed(1),
  'bare calls ms': bare.toFixed(1),
  ratio: (module / bare).toFixed(3),
});

// The picture is one of the module's own.
async function serve({ bus, inside }, picture) {
  fs.writeFileSync(inside('picture.png'), picture);
  const service = await connect(bus.address);
  await service.own(SHELL);
  const copy = ({ body: [, , file] }) => {
    fs.copyFileSync(inside('picture.png'), file);
    return { signature: 'bs', body: [true, file] };
  };
  service.answer({ Introspect: { signature: 's', body: [''] }, Screenshot: copy });
  return service;
}

run(async (quick) => {
  const rounds = (jpeg) => (quick ? 3 : jpeg ? 31 : 9);
  const rows = [];
  let picture;
  for (const [width, height] of [
    [3840, 2160],
    [1920, 1080],
  ]) {
    await inSession({ screens: [`${width}x${height}`], bus: false }, async (app, { x }) => {
      await x.wallpaper(width, height, pixels(width, height));
      for (const jpeg of [true, false])
        rows.push(
          row('X11', [width, height], jpeg, await time(app, 'desktop', jpeg, rounds(jpeg))),
        );
      picture = await app.run(() => kiv.getScreenSnap('desktop').data);
    });
  }
  const wayland = { env: { XDG_SESSION_TYPE: 'wayland', GDK_BACKEND: '' } };
  await inSession(
    { screens: ['640x480'] },
    async (app, session) => {
      const service = await serve(session, picture);
      for (const jpeg of [true, false])
        rows.push(
          row('D-Bus', [1920, 1080], jpeg, await time(app, 'compositor', jpeg, rounds(jpeg))),
        );
      service.close();
    },
    wayland,
  );
  table('Time of one snapshot (median)', rows);
});
