'use strict';

const fs = require('fs');
const path = require('path');

const ENTITIES = { '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' };
const escaped = (text) => String(text).replace(/[&<>"]/g, (character) => ENTITIES[character]);

const STYLE = `
body { font: 16px/1.5 system-ui, "DejaVu Sans", sans-serif; color: #222; background: #fafafa; }
body { margin: 2rem auto; max-width: 60rem; padding: 0 1rem; }
h1 { font-size: 1.6rem; } h2 { font-size: 1.2rem; margin: 0; }
section { margin-top: 3rem; } section > p { margin: 0.2rem 0 0.8rem; }
code, pre { font: 0.85rem/1.5 "DejaVu Sans Mono", monospace; overflow-wrap: anywhere; }
pre { white-space: pre-wrap; background: #eee; padding: 0.8rem; }
figure { margin: 0 0 1.5rem; } figcaption { color: #555; }
img { display: block; max-width: 100%; height: auto; box-shadow: 0 0 0 1px #ccc; }
.about { display: flex; flex-wrap: wrap; align-items: flex-start; }
.about { gap: 0.5rem 1.5rem; margin-top: 1rem; }
.about figure { flex: 0 1 310px; } .about dl { flex: 1 1 18rem; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: 0 1rem; margin: 0; }
dt { color: #555; } dd { margin: 0; overflow-wrap: anywhere; }
.wide { overflow-x: auto; } table { border-collapse: collapse; }
td, th { padding: 0.1rem 1rem 0.1rem 0; text-align: left; }
th { color: #555; font-weight: normal; border-bottom: 1px solid #ccc; }
.number { text-align: right; white-space: nowrap; font-variant-numeric: tabular-nums; }`;

const MADE_FOR_IT =
  'a private desktop that the demonstration started, with a few windows and a program that types ' +
  'and clicks as a person would';
// By the number of monitors; the desktop of the person who watches has an unknown one.
const SCENES = [
  'your own desktop. Nothing was typed or clicked for you, and no rectangle was dragged out',
  `${MADE_FOR_IT}. It has one monitor, because Xorg could not show two here`,
  `${MADE_FOR_IT}. It has two monitors; the active window is on the second`,
];

const kilobytes = (bytes) => `${Math.round(bytes / 1000).toLocaleString('en')} kB`;
// What the module says of a window that is not there, or not an X11 window.
const known = (text) => (text === 'Undefined' ? 'not known' : text);
const size = ({ width, height }) => `${width} × ${height}`;

function picture({ file, width, height }, alternative) {
  return `<img src="${escaped(file)}" alt="${escaped(alternative)}" width="${width}"
height="${height}">`;
}

function facts(entries) {
  const row = ([name, value]) => `<dt>${escaped(name)}</dt><dd>${escaped(value)}</dd>`;
  return `<dl>${entries.map(row).join('')}</dl>`;
}

/** `numbers` says of each column whether it holds numbers. */
function table(heads, numbers, rows) {
  const cells = (tag, values) => {
    const cell = (value, i) =>
      `<${tag}${numbers[i] ? ' class="number"' : ''}>${escaped(value)}</${tag}>`;
    return `<tr>${values.map(cell).join('')}</tr>`;
  };
  return `<div class="wide"><table>${cells('th', heads)}
${rows.map((row) => cells('td', row)).join('\n')}</table></div>`;
}

function comparison(snapshots) {
  const row = (snap) => [snap.heading, size(snap), kilobytes(snap.bytes), `${snap.ms} ms`];
  const heads = ['Picture', 'Pixels', 'Size', 'Time'];
  return `<section><h2>The three snapshots compared</h2>
<p>A JPEG is the smaller and quicker one where the screen shows photographs; a PNG is exact to the
pixel.</p>
${table(heads, [false, true, true, true], snapshots.map(row))}</section>`;
}

function snapshot(snap) {
  const thumbnail = { file: snap.thumbnail, width: 620, height: 320 };
  return `<section><h2>${escaped(snap.heading)}</h2><p><code>${escaped(snap.call)}</code></p>
${picture(snap, `${snap.heading}; active window: ${known(snap.title)}`)}
<div class="about">
<figure>${picture(thumbnail, `The thumbnail of: ${snap.heading}`)}
<figcaption>Its thumbnail: always 620 × 320, stretched to fit</figcaption></figure>
${facts([
  ['Active window', known(snap.title)],
  ['Its command', known(snap.command)],
  ['Pixels', size(snap)],
  ['Size', `${kilobytes(snap.bytes)}, taken in ${snap.ms} ms`],
])}</div></section>`;
}

const STEPS = {
  hovering: 'While hovering: the monitor freezes and dims, and a crosshair follows the pointer.',
  dragging: 'While dragging: what lies inside the rectangle is undimmed.',
  result: 'The result: exactly those pixels, as the screen showed them before.',
};

function selection(list) {
  if (list.length === 0) return '';
  const figure = (step) => `<figure>${picture(step, STEPS[step.name])}
<figcaption>${STEPS[step.name]} ${size(step)}, ${kilobytes(step.bytes)}</figcaption></figure>`;
  return `<section><h2>A rectangle that the person drags out</h2>
<p><code>getScreenSnapAsync('selection', callback)</code></p>
${list.map(figure).join('\n')}</section>`;
}

const EVENTS = { screen_lock: 'screen locked', screen_unlock: 'screen unlocked' };

function moments(list, going) {
  const row = ({ second, keys, clicks, idle, ticks, event }) => [
    `${second} s`,
    keys,
    clicks,
    idle < 0 ? 'unknown' : `${idle} s`,
    ticks,
    EVENTS[event] || '',
  ];
  const heads = ['After', 'Keys pressed', 'Clicks', 'Idle for', 'Timer ticks', 'Event'];
  const state = going ? 'The table is still growing; this page reloads itself.' : '';
  return `<section><h2>Input, timer and screen lock, as they happened</h2>
<p><code>getInputInfo()</code>, <code>setInterval()</code>, <code>ScreenLockMonitor</code>. Keys and
clicks are counted, never recorded. ${state}</p>
${table(heads, [true, true, true, true, true, false], list.map(row))}</section>`;
}

/**
 * Writes index.html into `folder` and returns its path. While `live` is going on the page loads
 * itself again.
 */
function writePage(folder, { monitors, snapshots, selection: steps, log, live = [], going }) {
  const file = path.join(folder, 'index.html');
  fs.writeFileSync(
    file,
    `<!DOCTYPE html>
<html lang="en"><meta charset="utf-8"><title>kiv_native: a demonstration</title>
<meta name="viewport" content="width=device-width">${
      going ? '<meta http-equiv="refresh" content="1">' : ''
    }<style>${STYLE}</style>
<h1>What kiv_native records</h1>
<p>You see what the module recorded on ${SCENES[monitors]}.</p>
${snapshots.map(snapshot).join('\n')}
${comparison(snapshots)}
${selection(steps)}
${moments(live, going)}
<section><h2>What the module logged</h2><pre>${escaped(log.join('\n') || 'nothing')}</pre></section>
</html>
`,
  );
  return file;
}

module.exports = { writePage };
