'use strict';

// What `kiv_native doctor` finds out. Keep to the syntax of the oldest supported Node.
//
// The report, which --json prints; null stands for what could not be found out:
//   doctor              1, the version of this list; keys may be added within it
//   screenshots         work; way: "x11", "gnome", "kwin", "screenshot2" or "portal"; reason where
//                       they do not work: "module", "display", "session type", "unknown",
//                       "portal unknown", "portal denied" or "portal unavailable"
//   module              loads; origin: "built" or "prebuilt"; missingLibrary
//   versions            kiv_native, node, abi, architecture, gtk, glib
//   session             type and desktop as the environment has them; x11: what the module decides;
//                       waylandDisplay: WAYLAND_DISPLAY is set
//   display             set: DISPLAY is; answers; width and height in pixels; activeWindow: found
//   idleSeconds
//   bus                 known: it has an address; answers; lockSignals: interface to whether
//                       somebody who sends it is on the bus
//   compositor          gnome, kwin, screenshot2: "absent", "allowed", "refused", "timeout" or the
//                       name of another D-Bus error
//   portal              running; permission: what state() of kiv_native/permission returns
//   host                functions: how many of the four this process has; companionProvides: and
//                       after host.loadUtilities()
//   failures            of the checks that failed: "timeout", a signal, an exit code or "error"

const { spawn } = require('child_process');
const fs = require('fs');
const path = require('path');
const { NAMES } = require('./probe');

const PATIENCE = 3000;
const NOWHERE = 'unix:path=/nonexistent';

// What a service answers to a request that it cannot fulfil, when it lets the caller in.
const LETS_IN = {
  gnome: /Quark\._g_2dio_2derror_2dquark\.Code(?!14$)|^$/, // 14: saving to disk is disabled
  kwin: /\.InvalidScreen$/,
  screenshot2: /\.InvalidScreen$/,
};
const REFUSES = /\.(AccessDenied|NoAuthorized)$|quark\.Code14$/;
const ABSENT = /\.(ServiceUnknown|NameHasNoOwner|UnknownObject|UnknownInterface|UnknownMethod)$/;

/** Nothing that the person could have named. */
const harmless = (text) => (/^[\w.:-]{1,80}$/.test(text) ? text : 'other');

const busIsKnown = ({ DBUS_SESSION_BUS_ADDRESS: address, XDG_RUNTIME_DIR: folder }) =>
  Boolean(address || (folder && fs.existsSync(path.join(folder, 'bus'))));

function environment() {
  const env = Object.assign({}, process.env);
  // GLib would start a bus of its own.
  if (!busIsKnown(env)) env.DBUS_SESSION_BUS_ADDRESS = NOWHERE;
  return env;
}

/** { value } or { error }, which is "timeout", a signal's name or what was thrown. */
function probe(name, env) {
  return new Promise((resolve) => {
    const command = [path.join(__dirname, 'probe.js'), name];
    const stdio = ['ignore', 'ignore', 'ignore', 'pipe'];
    const child = spawn(process.execPath, command, { env, stdio });
    let text = '';
    let late = false;
    const timer = setTimeout(() => {
      late = true;
      child.kill('SIGKILL');
    }, PATIENCE);
    child.stdio[3].setEncoding('utf8').on('data', (piece) => {
      text += piece;
    });
    child.on('error', (error) => resolve({ error: error.message }));
    child.on('close', (code, signal) => {
      clearTimeout(timer);
      if (late) return resolve({ error: 'timeout' });
      try {
        resolve(JSON.parse(text));
      } catch (_error) {
        resolve({ error: signal || `exit code ${code}` });
      }
    });
  });
}

function access(service, error) {
  if (error === undefined) return null;
  if (LETS_IN[service].test(error)) return 'allowed';
  if (REFUSES.test(error)) return 'refused';
  return ABSENT.test(error) ? 'absent' : harmless(error || 'answered');
}

/** The first way that a snapshot would take with success, or why there is none. */
function judge({ module, session, display, compositor, portal }) {
  const works = (way) => ({ work: true, way, reason: null });
  const fails = (reason) => ({ work: false, way: null, reason });
  if (!module.loads) return fails('module');
  if (session.x11) {
    if (!display.answers) return fails(display.answers === null ? 'unknown' : 'display');
    return session.waylandDisplay ? fails('session type') : works('x11');
  }
  const own = ['gnome', 'kwin', 'screenshot2'].find((name) => compositor[name] === 'allowed');
  if (own) return works(own);
  if (portal.permission === null) return fails('unknown');
  if (/^(granted|not needed)$/.test(portal.permission)) return works('portal');
  return fails(`portal ${portal.permission}`);
}

function describeModule({ value, error }) {
  const reason = value ? value.error : error;
  const [missing] = /lib[\w+-]+\.so[.\w]*/.exec(reason || '') || [null];
  return { loads: !reason, origin: reason ? null : value.origin, missingLibrary: missing };
}

function describeSession(module) {
  const { WAYLAND_DISPLAY, XDG_SESSION_TYPE, XDG_CURRENT_DESKTOP } = process.env;
  return {
    type: XDG_SESSION_TYPE === undefined ? null : harmless(XDG_SESSION_TYPE),
    x11: module.value && !module.value.error ? !module.value.wayland : null,
    waylandDisplay: Boolean(WAYLAND_DISPLAY),
    desktop: XDG_CURRENT_DESKTOP ? harmless(XDG_CURRENT_DESKTOP) : null,
  };
}

function describeDisplay({ value, error }) {
  // A server that hangs does not answer either.
  const answers = error && error !== 'timeout' ? null : Boolean(value);
  const { width, height, window } = value || { width: null, height: null, window: null };
  return { set: Boolean(process.env.DISPLAY), answers, width, height, activeWindow: window };
}

function describeBus({ value, error }) {
  const answers = error && error !== 'timeout' ? null : Boolean(value);
  return { known: busIsKnown(process.env), answers, lockSignals: value || null };
}

function describeCompositor({ value }, bus) {
  const own = (name) => (bus.answers && value ? access(name, value[name]) : null);
  return { gnome: own('gnome'), kwin: own('kwin'), screenshot2: own('screenshot2') };
}

function describePortal({ value }) {
  if (!value) return { running: null, permission: null };
  return { running: Boolean(value.running && value.running[0]), permission: value.state };
}

function describeVersions({ value }) {
  return {
    kiv_native: require('../../package.json').version,
    node: process.versions.node,
    abi: process.versions.modules,
    architecture: process.arch,
    gtk: (value && value.gtk) || null,
    glib: (value && value.glib) || null,
  };
}

function describeFailures(found) {
  const failures = {};
  for (const name of NAMES) {
    const { error } = found[name];
    const plain = /^(timeout|SIG\w+|exit code \w+)$/.test(error);
    if (error) failures[name] = plain ? error : 'error';
  }
  return failures;
}

function assemble(found) {
  const { module, host, idle } = found;
  const bus = describeBus(found.bus);
  const parts = {
    module: describeModule(module),
    versions: describeVersions(host),
    session: describeSession(module),
    display: describeDisplay(found.display),
    idleSeconds: idle.value >= 0 ? idle.value : null,
    bus,
    compositor: describeCompositor(found.services, bus),
    portal: describePortal(found.permission),
    host: host.value
      ? { functions: host.value.before, companionProvides: host.value.after }
      : { functions: null, companionProvides: null },
    failures: describeFailures(found),
  };
  const details = {
    title: found.display.value ? found.display.value.title : '',
    moduleError: module.value ? module.value.error : module.error,
  };
  return { report: Object.assign({ doctor: 1, screenshots: judge(parts) }, parts), details };
}

/**
 * Resolves with `report`, which holds nothing of the person and is the object that --json prints,
 * and `details` for the person's own screen. Takes about three seconds when something hangs.
 */
async function examine() {
  const env = environment();
  const results = await Promise.all(NAMES.map((name) => probe(name, env)));
  const found = {};
  NAMES.forEach((name, i) => {
    found[name] = results[i];
  });
  return assemble(found);
}

module.exports = { examine };
