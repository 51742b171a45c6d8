'use strict';

const fs = require('fs');
const path = require('path');

const ENTITIES = { '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' };
const escaped = (text) => String(text).replace(/[&<>"]/g, (character) => ENTITIES[character]);

const STYLE = `
body { font: 15px/1.5 system-ui, sans-serif; color: #222; }
body { margin: 2rem auto; max-width: 70rem; padding: 0 1rem; }
h2 { font: 600 1rem monospace; margin-top: 2.5rem; }
figure { display: flex; flex-wrap: wrap; gap: 1rem; align-items: flex-start; margin: 0; }
img { border: 1px solid #ccc; max-width: 100%; }
img.whole { width: 44rem; }
img.thumbnail { width: 310px; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: 0 1rem; }
td, th { padding: 0 1rem; text-align: right; }
dt { color: #666; } dd { margin: 0; overflow-wrap: anywhere; }`;

function facts(entries) {
  const row = ([name, value]) => `<dt>${escaped(name)}</dt><dd>${escaped(value)}</dd>`;
  return `<dl>${entries.map(row).join('')}</dl>`;
}

function snapshot(snap) {
  return `<section><h2>${escaped(snap.call)}</h2>
<figure><img class="whole" src="${escaped(snap.file)}" alt="the picture">
<img class="thumbnail" src="${escaped(snap.thumbnail)}" alt="its thumbnail"></figure>
${facts([
  ['size', `${snap.width} × ${snap.height}, ${snap.bytes} bytes`],
  ['file name', snap.filename],
  ['active window', snap.title],
  ['its process', snap.process],
])}</section>`;
}

function pictures(list) {
  if (list.length === 0) return '';
  const figure = ({ name, file, bytes }) =>
    `<figure><img class="whole" src="${escaped(file)}" alt="${escaped(name)}">
<figcaption>${escaped(name)}, ${bytes} bytes</figcaption></figure>`;
  const figures = list.map(figure).join('\n');
  return `<section><h2>getScreenSnapAsync("selection", f)</h2>${figures}</section>`;
}

function moments(list) {
  const cells = (tag, values) =>
    `<tr>${values.map((value) => `<${tag}>${escaped(value)}</${tag}>`).join('')}</tr>`;
  const row = (one) =>
    cells('td', [one.second, one.keys, one.clicks, one.idle, one.ticks, one.event]);
  return `<section><h2>getInputInfo(), setInterval() and ScreenLockMonitor, live</h2>
<table>${cells('th', ['second', 'keys', 'clicks', 'idle seconds', 'ticks', 'event'])}
${list.map(row).join('\n')}</table></section>`;
}

/**
 * Writes index.html into `folder` and returns its path. While `live` is going on the page loads
 * itself again.
 */
function writePage(folder, { snapshots, selection = [], log, live = [], going = false }) {
  const lines = log.join('\n') || 'nothing';
  const file = path.join(folder, 'index.html');
  fs.writeFileSync(
    file,
    `<!DOCTYPE html>
<html lang="en"><meta charset="utf-8"><title>kiv_native</title>${
      going ? '<meta http-equiv="refresh" content="1">' : ''
    }<style>${STYLE}</style>
<h1>kiv_native</h1>
${snapshots.map(snapshot).join('\n')}
${pictures(selection)}
${moments(live)}
<section><h2>log</h2><pre>${escaped(lines)}</pre></section>
</html>
`,
  );
  return file;
}

module.exports = { writePage };
