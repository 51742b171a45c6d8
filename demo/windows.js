'use strict';

// The windows of the private desktop, as GTK's own tool shows them: descriptions in GtkBuilder's
// language and one style sheet for all.

const escaped = (text) => text.replace(/&/g, '&amp;').replace(/</g, '&lt;');

const property = (name, value) => `<property name="${name}">${escaped(String(value))}</property>`;

function widget(type, properties, children = '') {
  const { name = '', ...rest } = properties;
  const own = Object.entries({ visible: 'True', ...(name && { name }), ...rest });
  return `<object class="${type}">${own.map((entry) => property(...entry)).join('')}
${children}</object>`;
}

const child = (object, packing = {}) => {
  const entries = Object.entries(packing).map((entry) => property(...entry));
  return `<child>${object}<packing>${entries.join('')}</packing></child>`;
};

const label = (text, name, align = 0) => widget('GtkLabel', { name, label: text, xalign: align });

const QUARTERS = ['', 'January', 'February', 'March', 'Sum'];
const PLACES = 'Aarhus Bergen Cork Delft Espoo Fulda Ghent Hvar Izmir Jena Kiel Lyon'.split(' ');

function figures() {
  const rows = PLACES.map((place, i) => {
    const months = [1, 2, 3].map((month) => 1200 + ((i * 761 + month * 397) % 4800));
    return [place, ...[...months, months.reduce((a, b) => a + b)].map(String)];
  });
  const cells = [QUARTERS, ...rows].flatMap((row, top) =>
    row.map((text, left) => {
      const name = top === 0 || left === 0 ? 'head' : 'cell';
      return child(label(text, name, left === 0 ? 0 : 1), {
        'left-attach': left,
        'top-attach': top,
      });
    }),
  );
  const grid = { 'column-homogeneous': 'True', 'row-homogeneous': 'True' };
  return widget('GtkGrid', { name: 'figures', ...grid }, cells.join('\n'));
}

const MAILS = [
  ['Ada', 'Minutes of Tuesday', 'We agreed on the second draft, with …'],
  ['Brook', 'Invoice 2291', 'Please find attached what we talked about.'],
  ['Chidi', 'Lunch?', 'The place by the harbour has opened again.'],
  ['Dana', 'Figures for the quarter', 'Sums are in; Izmir is still missing one.'],
  ['Emre', 'Photographs', 'The lake in the evening, as promised.'],
];

function inbox() {
  const mail = ([sender, subject, text], i) => {
    const lines = [label(sender, 'sender'), label(subject, 'subject'), label(text, 'text')];
    const name = i < 3 ? 'unread' : 'read';
    return child(
      widget(
        'GtkBox',
        { name, orientation: 'vertical' },
        lines.map((one) => child(one)).join('\n'),
      ),
    );
  };
  return widget('GtkBox', { name: 'inbox', orientation: 'vertical' }, MAILS.map(mail).join('\n'));
}

const NOTES = `Before the demonstration
  - both monitors are on
  - the quarter's figures are open
  - nothing private is on the screen

`;

const buffer = `<object class="GtkTextBuffer" id="notes">${property('text', NOTES)}</object>`;

// The cursor would blink, and no two pictures be the same.
const editor = widget('GtkTextView', {
  name: 'editor',
  buffer: 'notes',
  'wrap-mode': 'word',
  'cursor-visible': 'False',
});

const empty = (name) => widget('GtkBox', { name });

/** From the lowest to the active one, which is on the second monitor. */
const WINDOWS = [
  { title: 'Desktop', place: [0, 0, 2560, 1024], kind: 'desktop', content: empty('wallpaper') },
  { title: 'Quarterly figures.ods — Calc', place: [60, 70, 680, 560], content: figures() },
  { title: 'Inbox (3) — Mail', place: [640, 470, 580, 420], content: inbox() },
  {
    title: 'Evening at the lake.jpg — Photos',
    place: [1800, 90, 660, 440],
    content: empty('photo'),
  },
  { title: 'notes.txt — Editor', place: [1390, 440, 620, 420], content: editor, before: buffer },
];

const describe = ({ title, place: [, , width, height], kind = 'normal', content, before = '' }) =>
  `<?xml version="1.0" encoding="UTF-8"?>
<interface>${before}${widget(
    'GtkWindow',
    { title, 'type-hint': kind, 'default-width': width, 'default-height': height },
    `<child>${content}</child>`,
  )}</interface>
`;

const STYLE = `
* { font-family: "DejaVu Sans"; font-size: 17px; }
#wallpaper { background: url("wallpaper.png"); }
#photo { background: url("photo.png"); }
#figures { background: #ffffff; color: #222222; }
#head { background: #2a6f4e; color: #ffffff; padding: 0 10px; border: 1px solid #235c41; }
#cell { padding: 0 10px; border: 1px solid #d8d8d8; border-width: 0 1px 1px 0; }
#inbox { background: #ffffff; color: #333333; }
#read, #unread { padding: 10px 16px; border-bottom: 1px solid #dddddd; }
#unread { background: #eaf1fb; }
#sender { font-weight: bold; color: #30589c; }
#text { color: #777777; }
#editor, #editor text { background: #20242c; color: #e4cf9f; font-family: "DejaVu Sans Mono"; }
#editor { padding: 14px; }
`;

module.exports = { STYLE, WINDOWS, describe };
