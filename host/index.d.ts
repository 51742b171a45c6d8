/**
 * Runs GLib sources inside Node's event loop and initialises GTK. Does not keep the process alive;
 * may be called again. Returns whether GTK has a display; without one, D-Bus signals and GLib
 * time-outs are dispatched all the same.
 */
export function startLoop(): boolean;

/** Stops running GLib sources; GTK stays initialised. Does nothing when the loop is not running. */
export function stopLoop(): void;

/** Makes the host's four utility functions visible to the whole process. May be called again. */
export function loadUtilities(): void;
