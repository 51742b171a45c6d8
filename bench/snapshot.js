'use strict';

// A snapshot compared with the bare library calls, on X11 and through a stand-in for a compositor's
// service. node bench/snapshot.js [--quick]

const fs = require('fs');
const { FULL, LARGE, beside, inSession, run, table } = require('./measure');

const compare = async (source, jpeg, rounds) => {
  const module = () => kiv.getScreenSnap('desktop', jpeg);
  if (module().width === 0) throw new Error(log.join('\n'));
  const bare = () => reference[source](jpeg);
  const times = await measure.interleaved({ module, bare }, rounds);
  return [measure.best(times.module), measure.best(times.bare)];
};

// The picture was taken by the module.
async function serve({ peer, inside }, picture) {
  fs.writeFileSync(inside('picture.png'), picture);
  await peer.own('org.gnome.Shell.Screenshot');
  const copy = ({ body: [, , file] }) => {
    fs.copyFileSync(inside('picture.png'), file);
    return { signature: 'bs', body: [true, file] };
  };
  peer.answer({ Introspect: { signature: 's', body: [''] }, Screenshot: copy });
}

run(async (quick) => {
  const rows = [];
  async function add(app, source, [width, height]) {
    for (const format of ['JPEG', 'PNG']) {
      const rounds = quick ? 3 : format === 'JPEG' ? 31 : 9;
      const times = await app.run(compare, source, format === 'JPEG', rounds);
      rows.push({ source, screen: `${width}x${height}`, format, ...beside(...times, 1) });
    }
  }
  let picture;
  for (const size of [LARGE, FULL]) {
    await inSession(size, async (app) => {
      await add(app, 'desktop', size);
      picture = await app.run(() => kiv.getScreenSnap('desktop').data);
    });
  }
  const throughService = async (app, session) => {
    await serve(session, picture);
    await add(app, 'compositor', FULL);
  };
  await inSession([640, 480], throughService, { env: { XDG_SESSION_TYPE: 'wayland' } });
  table('Milliseconds of one snapshot (the best tenth, or the best)', rows);
});
