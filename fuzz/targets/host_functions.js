'use strict';

const TEXTS = ['ScreenFullPath', 'ThumbnailFullPath', 'screen_hash'];

/** Snapshots into a folder, through functions that answer what they like, or throw. */
module.exports = ({ getScreenSnap, fuzz }) => (bytes) => {
  fuzz.planHostFunctions(bytes);
  const snap = getScreenSnap('desktop', bytes.length % 2 === 0, bytes.toString('latin1', 0, 40) || '/tmp');
  const written = 'ScreenFullPath' in snap;
  if (written && !TEXTS.every((key) => typeof snap[key] === 'string')) throw new Error('a written snapshot without its texts');
  if (!written && !(Buffer.isBuffer(snap.data) && snap.data.length > 0)) throw new Error('a snapshot without its bytes');
};
