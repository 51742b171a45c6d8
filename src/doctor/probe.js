'use strict';

// One probe in a process of its own, since native code may hang or crash: `probe.js NAME` writes
// what it finds to descriptor 3, as JSON. Keep to the syntax of the oldest supported Node.

const fs = require('fs');
const path = require('path');

// The interfaces of the signals that the module hears, and who sends them.
const LOCK_SIGNALS = {
  'org.gnome.ScreenSaver': ['org.gnome.ScreenSaver', 'org.gnome.Shell.ScreenShield'],
  'org.freedesktop.ScreenSaver': ['org.freedesktop.ScreenSaver'],
  'org.cinnamon.ScreenSaver': ['org.cinnamon.ScreenSaver'],
  'com.ubuntu.Upstart0_6': ['com.ubuntu.Upstart'],
};
const PORTAL = 'org.freedesktop.portal.Desktop';

/** The file of an add-on that has been loaded. */
const fileOf = (name) =>
  Object.keys(require.cache).find((file) => file.endsWith('.node') && file.includes(name));

function facts() {
  require('../../permission');
  return require(fileOf('kiv_permission')).facts;
}

function attempt(work) {
  try {
    work();
    return null;
  } catch (error) {
    return String(error.message);
  }
}

const probes = {
  module() {
    let wayland = null;
    const error = attempt(() => {
      wayland = require('../..').isWayland();
    });
    const prebuilt = path.join(__dirname, '../../prebuilt');
    const origin = (fileOf('kiv_native') || '').startsWith(prebuilt) ? 'prebuilt' : 'built';
    return { error, wayland, origin };
  },
  host() {
    const { hostFunctions, libraries } = facts();
    const before = hostFunctions();
    const failed = attempt(() => require('../../host').loadUtilities());
    return Object.assign(libraries(), { before, after: failed ? null : hostFunctions() });
  },
  idle() {
    const kiv = require('../..');
    kiv.setupLogger(() => {});
    kiv.init();
    return kiv.getInputInfo().last.input;
  },
  display: () => facts().display(),
  bus() {
    const senders = [].concat(...Object.values(LOCK_SIGNALS));
    const owned = facts().owned(senders);
    if (!owned) return null;
    const runs = (sender) => owned[senders.indexOf(sender)];
    const signals = {};
    for (const name of Object.keys(LOCK_SIGNALS)) signals[name] = LOCK_SIGNALS[name].some(runs);
    return signals;
  },
  services: () => facts().services(),
  permission() {
    const state = require('../../permission').state();
    return { state, running: facts().owned([PORTAL]) };
  },
};

function main() {
  const result = {};
  const error = attempt(() => {
    result.value = probes[process.argv[2]]();
  });
  fs.writeSync(3, JSON.stringify(Object.assign(result, { error })));
  process.exit(0);
}

if (require.main === module) main();

module.exports = { NAMES: Object.keys(probes) };
