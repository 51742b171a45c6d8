'use strict';

// A snapshot on Wayland compared with the bare calls. The older services refuse, as on current
// desktops. node bench/compositor.js [--quick]

// One call takes all pictures of one way and may last that long.
process.env.KIV_PATIENCE = '900000';

const compositors = require('../test/lib/compositors');
const { FULL, LARGE, beside, inSession, run, table } = require('./measure');

const WAYS = [
  {
    way: 'ScreenShot2, KWin',
    source: 'screenshot2',
    lacking: compositors.lackingKwin,
    starter: (size) => (session, launch) => {
      const more = ['--width', size[0], '--height', size[1]].map(String);
      const interfaces = ['org.kde.KWin.ScreenShot2'];
      return compositors.startKwin(session, launch, { interfaces, more });
    },
  },
  {
    way: 'portal, sway',
    source: 'portal',
    lacking: compositors.lackingSwayPortal,
    starter: (size) => (session, launch) =>
      compositors.startSway(session, launch, { outputs: [size.join('x')] }),
  },
  {
    way: 'portal, GNOME Shell',
    source: 'portal',
    lacking: compositors.lackingGnomePortal,
    starter: (size) => (session, launch) =>
      compositors.startGnomeShell(session, launch, { portal: true, size: size.join('x') }),
  },
];

const compare = async (source, rounds) => {
  const module = () => kiv.getScreenSnap('desktop', true);
  if (module().width === 0) throw new Error(log.join('\n'));
  const bare = () => reference[source](true);
  const refused = () => reference.refused(source === 'portal');
  const times = await measure.interleaved({ module, bare, refused }, rounds);
  return Object.values(times).map(measure.best);
};

run(async (quick) => {
  const rows = [];
  for (const { way, source, lacking, starter } of WAYS) {
    const reason = lacking();
    if (reason) console.error(`${way}: ${reason}`);
    else {
      for (const size of [FULL, LARGE]) {
        const start = () => compositors.startCompositor(starter(size));
        await inSession(
          size,
          async (app, session) => {
            if (source === 'portal') await compositors.setPermission(session, 'yes');
            const rounds = quick ? 3 : size === FULL ? 31 : 11;
            const [module, bare, refused] = await app.run(compare, source, rounds);
            const more = { 'a refused call': refused.toFixed(1) };
            rows.push({ way, screen: size.join('x'), ...beside(module, bare, 1), ...more });
          },
          { start },
        );
      }
    }
  }
  table('Milliseconds of one snapshot as JPEG (the best tenth, or the best)', rows);
});
