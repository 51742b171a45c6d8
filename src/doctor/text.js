'use strict';

// The report of `kiv_native doctor` in words. Keep to the syntax of the oldest supported Node.

const WAYS = {
  x11: 'X11',
  gnome: "GNOME Shell's own service",
  kwin: "KWin's older service, org.kde.kwin.Screenshot",
  screenshot2: "KWin's ScreenShot2",
  portal: 'the desktop portal',
};
const REASONS = {
  module: 'do not work: the module cannot be loaded',
  display: 'do not work: this is an X11 session, and no X server answers',
  'session type': 'do not work: this is a Wayland session, and XDG_SESSION_TYPE does not say so',
  unknown: 'not known whether they work: a check failed or got no answer',
  'portal unknown': 'work through the desktop portal once the person has allowed it',
  'portal denied': 'do not work: the person has denied them',
  'portal unavailable': 'do not work: neither the compositor nor a desktop portal gives them',
};
const FORGET = `gdbus call --session --dest org.freedesktop.impl.portal.PermissionStore \\
  --object-path /org/freedesktop/impl/portal/PermissionStore \\
  --method org.freedesktop.impl.portal.PermissionStore.Delete screenshot screenshot`;
const BACK_END =
  'a back end for this desktop: xdg-desktop-portal-gnome, -kde, or -wlr together with -gtk';
const PORTAL = {
  granted: ['ok', 'screenshots are allowed'],
  'not needed': ['ok', 'allows screenshots without a question'],
  denied: [
    'no',
    'the person has denied screenshots',
    `change it in the desktop's privacy settings, or have the answer forgotten:\n${FORGET}`,
  ],
  unknown: [
    'no',
    'the person has not allowed screenshots for good',
    `have the application call require('kiv_native/permission').ask() from a button; where that
changes nothing, "ask each time" is stored: change it in the desktop's privacy settings`,
  ],
};
const RUNTIME_PACKAGES =
  'libgtk-3-0 libxi6 libxinerama1 (Fedora: gtk3 libXi libXinerama); a build wants libxss1, too';

/** What a window says about itself may hold control sequences of the terminal. */
function printable(text) {
  const plain = text.replace(/\p{C}+/gu, ' ');
  return plain.length > 60 ? `${plain.slice(0, 60)}…` : plain;
}

function loading({ module: { loads, origin, missingLibrary } }, { moduleError }) {
  if (loads) return ['ok', origin === 'built' ? 'loads, built here' : 'loads, prebuilt'];
  const again = 'install the package again under this Node: npm rebuild kiv_native';
  const wrong = /NODE_MODULE_VERSION (\d+)/.exec(moduleError);
  if (wrong) return ['no', `cannot be loaded: it was built for ABI ${wrong[1]}`, again];
  const remedy = `install what brings ${missingLibrary}: ${RUNTIME_PACKAGES}`;
  const reason = printable(String(moduleError).split('\n')[0]);
  return ['no', `cannot be loaded: ${reason}`, missingLibrary ? remedy : again];
}

function session({ session: { type, x11, waylandDisplay } }) {
  const said = type === null ? 'XDG_SESSION_TYPE is not set' : `XDG_SESSION_TYPE is ${type}`;
  const taken = x11 === null ? '' : `; the module takes it for ${x11 ? 'X11' : 'Wayland'}`;
  const start = (wanted) => `start the application with XDG_SESSION_TYPE=${wanted}`;
  if (x11 && waylandDisplay)
    return ['no', `${said + taken}, but WAYLAND_DISPLAY is set`, start('wayland')];
  if (x11 === false && !waylandDisplay && type !== 'wayland')
    return ['no', `${said + taken}, but WAYLAND_DISPLAY is not set`, start('x11')];
  return ['ok', said + taken];
}

function display({ session: { x11 }, display: { set, answers, width, height } }) {
  if (answers) return ['ok', `${process.env.DISPLAY} answers, ${width} × ${height}`];
  const remedy =
    x11 === false
      ? 'keys, clicks and titles need Xwayland'
      : "set DISPLAY, and XAUTHORITY where the server wants one, as in the person's session";
  return ['no', set ? `${process.env.DISPLAY} does not answer` : 'DISPLAY is not set', remedy];
}

function activeWindow({ session: { x11 }, display: { answers, activeWindow: found } }, { title }) {
  if (!answers) return ['--', 'not known without an X server'];
  if (found) return ['ok', title === 'Undefined' ? 'without a title' : `“${printable(title)}”`];
  return x11
    ? ['no', 'none', 'give a window the focus; the window manager has to set _NET_ACTIVE_WINDOW']
    : ['--', 'none; only windows of Xwayland are known'];
}

function idle({ session: { x11 }, display: { answers }, idleSeconds: seconds }) {
  if (seconds !== null) return ['ok', `${seconds} s`];
  if (x11 && !answers) return ['--', 'not known without an X server'];
  return x11
    ? ['no', 'not known', 'it needs an X server with the screen saver extension']
    : ['no', 'not known: on Wayland only GNOME tells it'];
}

function bus({ bus: { known, answers } }) {
  if (answers) return ['ok', 'answers'];
  return known
    ? ['no', 'does not answer', 'check DBUS_SESSION_BUS_ADDRESS']
    : ['no', 'none', 'set DBUS_SESSION_BUS_ADDRESS, or start it with dbus-run-session'];
}

function lockSignals({ bus: { lockSignals: signals } }) {
  if (!signals) return ['--', 'not known without a session bus'];
  const there = Object.keys(signals).filter((name) => signals[name]);
  if (there.length > 0) return ['ok', `from ${there.join(', ')}; none of the others runs`];
  const names = Object.keys(signals).join(', ');
  return ['no', `none of ${names} runs`, 'no screen locker that the module knows is running'];
}

function compositor({ session: { x11 }, bus: { answers }, compositor: own }) {
  if (!answers) return ['--', 'not known without a session bus'];
  const there = Object.keys(own).filter((name) => own[name] !== 'absent');
  if (there.length === 0) return ['--', 'has no screenshot service of its own'];
  const text = there.map((name) => `${WAYS[name]}: ${own[name]}`).join('; ');
  if (x11) return ['--', `${text}; not used on X11`];
  if (there.some((name) => own[name] === 'allowed')) return ['ok', text];
  if (there.includes('gnome'))
    return ['--', text, 'GNOME lets in its own programs only; what counts is the portal'];
  return [
    'no',
    text,
    `install a .desktop file for the application's executable (here ${process.execPath}):
  Exec=${process.execPath}
  X-KDE-DBUS-Restricted-Interfaces=org.kde.kwin.Screenshot,org.kde.KWin.ScreenShot2
then run kbuildsycoca5, or kbuildsycoca6`,
  ];
}

function portal({ session: { x11 }, bus: { answers }, portal: { running, permission } }) {
  if (x11) return ['--', 'not used on X11'];
  if (!answers) return ['--', 'not known without a session bus'];
  if (PORTAL[permission]) return PORTAL[permission];
  return running
    ? ['no', 'takes no screenshots', `install ${BACK_END}`]
    : ['no', 'there is none', `install xdg-desktop-portal and ${BACK_END}`];
}

function host({ host: { functions, companionProvides } }) {
  if (functions === 4) return ['ok', 'all four are there'];
  return companionProvides === 4
    ? [
        'ok',
        `${functions} of 4 in this process, all with require('kiv_native/host').loadUtilities()`,
      ]
    : ['no', `${functions} of 4, and the companion in host/ cannot be loaded`, 'install GLib 2.66'];
}

function versions({ versions: all }) {
  const node = `Node ${all.node} (ABI ${all.abi}, ${all.architecture})`;
  const missing = (text) => text || 'not found';
  return [
    '--',
    `kiv_native ${all.kiv_native}, ${node}, GTK ${missing(all.gtk)}, GLib ${missing(all.glib)}`,
  ];
}

// Label, what writes the line, and the probe that it needs.
const LINES = [
  ['Module', loading],
  ['Versions', versions],
  ['Session', session],
  ['Display', display, 'display'],
  ['Active window', activeWindow, 'display'],
  ['Idle time', idle, 'idle'],
  ['Session bus', bus, 'bus'],
  ['Lock signals', lockSignals, 'bus'],
  ['Compositor', compositor, 'services'],
  ['Portal', portal, 'permission'],
  ['Host functions', host, 'host'],
];

const REBUILD = 'npm rebuild kiv_native, or ./scripts/build in the repository';

function failed(failure) {
  if (failure === 'timeout') return ['no', 'no answer within 3 s'];
  if (failure === 'error')
    return ['--', 'not known: an add-on of the package cannot be loaded', REBUILD];
  return ['no', `not known: the check ended with ${failure}`];
}

/** One line for each subject, with a remedy beneath it where something is missing. */
function describe(report, details) {
  const { work, way, reason } = report.screenshots;
  const summary = work ? `work through ${WAYS[way]}` : REASONS[reason];
  const lines = [`Screenshots: ${summary}`, ''];
  for (const [label, line, probe] of LINES) {
    const failure = report.failures[probe];
    const [mark, text, remedy = ''] = failure ? failed(failure) : line(report, details);
    lines.push(`${mark}  ${label.padEnd(14)}  ${text}`);
    for (const part of remedy.split('\n').filter(Boolean)) lines.push(`${' '.repeat(20)}${part}`);
  }
  return `${lines.join('\n')}\n`;
}

module.exports = { describe };
