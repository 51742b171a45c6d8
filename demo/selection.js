'use strict';

// Drags out a rectangle with a real pointer; runs inside cases.
/* global kiv, until */
const { act, openSelection } = require('../test/helpers/overlay');

/**
 * Resolves to PNGs of the overlay while hovering and while dragging, and of the cut-out. `client` is
 * an x_client connection; the rectangle is in pixels of a screen with one monitor.
 */
async function selectRectangle(client, { x, y, width, height }) {
  const root = client.rootWindow(0);
  // The crosshair's dashes begin white at the top of the screen.
  const pictureWithCrossAt = async (column) => {
    await until(() => client.getImage(root, column, 1, 1, 1)[0] === 255, { what: 'the crosshair' });
    return kiv.getScreenSnap('desktop').data;
  };
  const selection = await openSelection(client);
  await pictureWithCrossAt(client.pointer().x);
  // The overlay's first step leaves the crosshair it opened with.
  act(client, `m ${x - 40} ${y - 40}`);
  await pictureWithCrossAt(x - 40);
  act(client, `m ${x} ${y}`);
  const hovering = await pictureWithCrossAt(x);
  act(client, 'p', `m ${x + width} ${y + height}`);
  const dragging = await pictureWithCrossAt(x + width);
  act(client, 'r');
  const { data, errorCode } = await selection.finished();
  return { hovering, dragging, cutOut: data, errorCode };
}

module.exports = { selectRectangle };
