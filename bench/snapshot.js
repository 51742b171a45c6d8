'use strict';

// A snapshot beside the bare library calls, on X11 and through a compositor's service that takes no
// time itself. node bench/snapshot.js [--quick]

const fs = require('fs');
const { connect } = require('../test/lib/bus');
const { inSession, run, table } = require('./measure');
const { pixels } = require('./pictures');

const SHELL = 'org.gnome.Shell.Screenshot';

// Rows of a table; both in one process, taking turns.
async function compare(app, kind, screen, quick) {
  const rows = [];
  for (const jpeg of [true, false]) {
    const [module, bare] = await app.run(
      (name, asJpeg, rounds) => {
        const subjects = {
          module: () => kiv.getScreenSnap('desktop', asJpeg),
          bare: () => reference[name](asJpeg),
        };
        reference.reserve(3840 * 2160 * 4);
        if (subjects.module().width === 0) throw new Error(log.join('\n'));
        measure.interleaved(subjects, 1);
        return Object.values(measure.interleaved(subjects, rounds)).map((all) =>
          measure.quantile(all, 0.1),
        );
      },
      ...[kind, jpeg, quick ? 3 : jpeg ? 31 : 9],
    );
    rows.push({
      source: kind,
      screen,
      format: jpeg ? 'JPEG' : 'PNG',
      'module ms': module.toFixed(1),
      'bare calls ms': bare.toFixed(1),
      ratio: (module / bare).toFixed(3),
    });
  }
  return rows;
}

// The picture is one of the module's own.
async function serve({ bus, inside, stops }, picture) {
  fs.writeFileSync(inside('picture.png'), picture);
  const service = await connect(bus.address);
  await service.own(SHELL);
  const copy = ({ body: [, , file] }) => {
    fs.copyFileSync(inside('picture.png'), file);
    return { signature: 'bs', body: [true, file] };
  };
  service.answer({ Introspect: { signature: 's', body: [''] }, Screenshot: copy });
  stops.push(service.close);
}

run(async (quick) => {
  const rows = [];
  let picture;
  for (const [width, height] of [
    [3840, 2160],
    [1920, 1080],
  ]) {
    const screen = `${width}x${height}`;
    await inSession({ screens: [screen], bus: false }, async (app, { x }) => {
      await x.wallpaper(width, height, pixels(width, height));
      rows.push(...(await compare(app, 'desktop', screen, quick)));
      picture = await app.run(() => kiv.getScreenSnap('desktop').data);
    });
  }
  const serveAndCompare = async (app, session) => {
    await serve(session, picture);
    rows.push(...(await compare(app, 'compositor', '1920x1080', quick)));
  };
  const env = { XDG_SESSION_TYPE: 'wayland' };
  await inSession({ screens: ['640x480'] }, serveAndCompare, { env });
  table('Time of one snapshot (the best tenth, or the best)', rows);
});
