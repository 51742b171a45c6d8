'use strict';

// What the samples of a day say: which quantities stayed, and which did not.

// How far the last sample may lie above the second, and four times what the second half of the day may
// rise: the engine's and the allocator's own fluctuation, which comes to rest.
const MEMORY = { 'resident kB': 4096, 'malloc kB': 512 };

/** Rise of the straight line through the values, from the first to the last. */
function trend(values) {
  const middle = (values.length - 1) / 2;
  const mean = values.reduce((sum, value) => sum + value, 0) / values.length;
  let [above, below] = [0, 0];
  values.forEach((value, i) => {
    above += (i - middle) * (value - mean);
    below += (i - middle) ** 2;
  });
  return (above / below) * (values.length - 1);
}

/** A row for each quantity, from its samples after the first tenth. */
function judge(samples) {
  const later = samples.slice(1);
  return Object.keys(samples[0])
    .filter((name) => typeof samples[0][name] === 'number')
    .map((name) => {
      const values = later.map((sample) => sample[name]);
      const rise = values[values.length - 1] - values[0];
      const late = trend(values.slice(values.length >> 1));
      const limit = MEMORY[name];
      const flat =
        limit === undefined
          ? values.every((value) => value === values[0])
          : rise <= limit && late <= limit / 4;
      return {
        quantity: name,
        'after the first tenth': values[0],
        lowest: Math.min(...values),
        highest: Math.max(...values),
        last: values[values.length - 1],
        'trend of the second half': late.toFixed(1),
        limits: limit === undefined ? 'equal' : `+${limit}, +${limit / 4}`,
        flat: flat ? 'yes' : 'NO',
      };
    });
}

/** The kinds of a count by name ({ kind: count }) that were not the same in all samples after the first tenth. */
function changes(samples, name) {
  const later = samples.slice(1).map((sample) => sample[name]);
  const kinds = new Set(later.flatMap((counts) => Object.keys(counts)));
  return [...kinds]
    .map((kind) => [kind, later.map((counts) => counts[kind] || 0)])
    .filter(([, counts]) => counts.some((count) => count !== counts[0]));
}

module.exports = { changes, judge };
