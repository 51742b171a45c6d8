'use strict';

/** Lock signals of any program: every event is one of two words, and never more than signals. */
module.exports = ({ ScreenLockMonitor, fuzz }) => {
  const events = [];
  const monitor = new ScreenLockMonitor();
  monitor.emit = (...args) => events.push(args);
  return (bytes) => {
    events.length = 0;
    fuzz.signals(bytes);
    // An event's name and nothing else; at most four signals to an input.
    for (const args of events) {
      if (args.length !== 1 || !['screen_lock', 'screen_unlock'].includes(args[0])) throw new Error(`an event ${args}`);
    }
    if (events.length > 4) throw new Error(`${events.length} events`);
    return monitor;
  };
};
