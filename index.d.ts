/// <reference types="node" />

/** Levels a log message can have. */
export type LogLevel = 'trace' | 'debug' | 'info' | 'warn' | 'error';

/** Receives each log message: its level and its text. The return value is ignored. */
export type Logger = (level: LogLevel, text: string) => void;

/** Part of every snapshot. */
export interface SnapDescription {
  /** In pixels of the encoded picture; 0 when the capture failed. */
  width: number;
  /** In pixels of the encoded picture; 0 when the capture failed. */
  height: number;
  /** Title of the active window, or "Undefined". Invalid UTF-8 becomes replacement characters. */
  activeWindowTitle: string;
  /** Command line of its process, each argument followed by a NUL, or "Undefined". */
  activeProcessName: string;
  /** "screen.jpg" or "screen.png"; empty before the first picture. */
  filename: string;
}

/** A snapshot in memory. The buffers are empty when the capture failed. */
export interface SnapBuffers extends SnapDescription {
  /** The encoded picture. */
  data: Buffer;
  /** The encoded thumbnail, 620 x 320 pixels, in the same format. */
  dataThumbnail: Buffer;
}

/** A snapshot in two files, written by the host's utility functions. */
export interface SnapFiles extends SnapDescription {
  /** Path of the picture's file. */
  ScreenFullPath: string;
  /** Path of the thumbnail's file. */
  ThumbnailFullPath: string;
  /** SHA-256 of the picture's bytes, in the host's text format. */
  screen_hash: string;
}

/** Counts of a process's handles; null where the platform does not support them. */
export interface ProcessHandlesInfo {
  handleCount: number | null;
  gdiObjectCount: number | null;
  guiUserObjectCount: number | null;
}

/** Times since the last input, in whole seconds; -1 when unknown. */
export interface LastTimes {
  /** Since any input. */
  input: number;
  /** Always -1 on Linux. */
  keyPress: number;
  /** Always -1 on Linux. */
  mouseClick: number;
  /** Always -1 on Linux. */
  mouseMove: number;
}

/** How active the user is. */
export interface InputInfo {
  last: LastTimes;
  /** Key presses since the module was loaded, counted between `init` and `teardown` only. */
  keyboardActivity: number;
  /** Button presses, counted in the same way; a burst of wheel clicks counts as one. */
  mouseActivity: number;
}

/**
 * Reports that the screen was locked or unlocked: calls its own `emit` with "screen_lock" or
 * "screen_unlock". The module adds no `emit`, so make the object an event emitter. The newest one
 * gets the events until it or an older one is collected. Create only one and keep a reference.
 */
export class ScreenLockMonitor {
  constructor();
  emit?(event: 'screen_lock' | 'screen_unlock'): unknown;
}

/**
 * Connects to the desktop session. Input counts, ticks, lock events and window titles need it. It
 * does not report failures. A second call first releases what the first one acquired. Once
 * connected, it keeps a Node process alive until `teardown`.
 */
export function init(): void;

/**
 * Returns activity counts and the idle time. The idle time comes from the X screen saver on X11, in
 * other sessions from GNOME's compositor, for whose reply it waits for up to 25 s.
 */
export function getInputInfo(): InputInfo;

/** Counts of a process's handles: always three nulls on Linux. */
export function getProcessHandlesInfo(pid: number): ProcessHandlesInfo;

/**
 * Takes a picture of the whole desktop, or of the monitor with the active window, and scales it
 * down to fit 1920 x 1080. Blocks until done. PNG unless `jpeg` is true. In a Wayland session both
 * types give the whole desktop, if the compositor or the person allows it (see docs/wayland.md).
 * While a selection is open, the call replaces the title and process that the selection reports.
 * @throws Error for any other type.
 */
export function getScreenSnap(type: 'desktop' | 'display', jpeg?: boolean): SnapBuffers;

/**
 * The same, but saves the files in `folder` if the host process exports its utility functions.
 * Returns buffers when it does not, when `folder` is empty and when a file cannot be written.
 */
export function getScreenSnap(
  type: 'desktop' | 'display',
  jpeg: boolean,
  folder: string,
): SnapFiles | SnapBuffers;

/** The result of `getScreenSnapAsync`: a PNG, or empty buffers. */
export interface AsyncSnap extends SnapBuffers {
  /**
   * 0: completed, with empty buffers when the capture failed or the rectangle was empty.
   * 102003: the selection failed or its overlay was closed. 102005: cancelled with Escape.
   */
  errorCode: 0 | 102003 | 102005;
}

/**
 * Takes a PNG at full size and calls back once. "desktop" and "display" call back before they
 * return. "selection" opens an overlay in which the user selects a rectangle, and calls back when
 * it is closed. While a selection is open, further requests are ignored and their callbacks are
 * never called. Without a function as callback, the snapshot is taken and discarded.
 * @throws Error for any other type, unless a selection is open.
 */
export function getScreenSnapAsync(
  type: 'desktop' | 'display' | 'selection',
  callback?: (snap: AsyncSnap) => void,
): void;

/** Installs the logger. Anything but a function restores logging to standard error. */
export function setupLogger(logger: Logger | null | undefined): void;

/**
 * Calls `callback` every `interval` milliseconds, instead of the previous one. 0 or less stops.
 * Periods that a busy thread misses are combined into one call. Call it after `init`.
 */
export function setInterval(callback: () => void, interval: number): void;

/**
 * Starts a script that waits until this process exits, installs the .deb or .rpm file and, if
 * `relaunch` is true, starts the application. Returns 0 when the script runs; -1 when the path is
 * rejected or no process can be started (the log says why). Two calls start two scripts.
 * @param path Should be absolute: `pkexec` runs the installation in another folder. Allowed are
 *   letters, digits, bytes above 0x7f and `/._-+:@%=,`; no leading `-`; `~` only after a letter or
 *   a digit, where no shell expands it.
 */
export function upgrade(path: string, relaunch?: boolean): 0 | -1;

/** Whether the session is not X11. XDG_SESSION_TYPE decides when the module is loaded. */
export function isWayland(): boolean;

/**
 * Releases what `init` acquired and closes the process's connection to the session bus. An open
 * selection fails. Counters and callbacks are kept. May be called at any time.
 */
export function teardown(): void;
