/**
 * Runs GLib sources inside Node's event loop and initialises GTK. Does not keep the process alive.
 * May be called repeatedly. Returns whether GTK has a display; without one, D-Bus signals and GLib
 * time-outs still work.
 */
export function startLoop(): boolean;

/** Stops running GLib sources; GTK stays initialised. Does nothing when the loop is not running. */
export function stopLoop(): void;

/** Exports the host's four utility functions to the whole process. May be called repeatedly. */
export function loadUtilities(): void;
