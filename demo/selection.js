'use strict';

// Drags out a rectangle with a real pointer; runs inside cases.
/* global kiv */
const { act, openSelection } = require('../test/helpers/overlay');

/**
 * Resolves to PNGs of the overlay while hovering and while dragging, and of the cut-out. `client` is
 * an x_client connection; the rectangle is in pixels of a screen with one monitor.
 */
async function selectRectangle(client, { x, y, width, height }) {
  const picture = async () => {
    await new Promise((resolve) => setTimeout(resolve, 200));
    return kiv.getScreenSnap('desktop').data;
  };
  const selection = await openSelection(client);
  act(client, `m ${x - 1} ${y - 1}`, `m ${x} ${y}`);
  const hovering = await picture();
  act(client, 'p', `m ${x + width} ${y + height}`);
  const dragging = await picture();
  act(client, 'r');
  const { data, errorCode } = await selection.finished();
  return { hovering, dragging, cutOut: data, errorCode };
}

module.exports = { selectRectangle };
