'use strict';

// Runs inside cases as well: keep to the syntax of the oldest supported Node.
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

/**
 * Polls `condition` (may be async) until it is truthy and resolves to its value. The limit is that of
 * a hang, not of a slow machine.
 */
async function until(condition, options) {
  const { timeout = 60000, what = String(condition) } = options || {};
  const end = Date.now() + timeout;
  for (let wait = 2; ; wait = Math.min(wait * 2, 50)) {
    const value = await condition();
    if (value) return value;
    if (Date.now() >= end) throw new Error(`waited ${timeout} ms in vain: ${what}`);
    await sleep(wait);
  }
}

module.exports = { until };
