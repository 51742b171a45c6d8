/// <reference types="node" />

/** Levels a log message can have. */
export type LogLevel = 'trace' | 'debug' | 'info' | 'warn' | 'error';

/** Receives every diagnostic of the module: its level and its text. The return value is ignored. */
export type Logger = (level: LogLevel, text: string) => void;

/** Facts that every snapshot carries. */
export interface SnapDescription {
  /** Pixels of the encoded picture; 0 when nothing could be captured. */
  width: number;
  /** Pixels of the encoded picture; 0 when nothing could be captured. */
  height: number;
  /** Title of the active window, or "Undefined". Invalid UTF-8 becomes replacement characters. */
  activeWindowTitle: string;
  /** Command line of its process: arguments separated and ended by NULs, or "Undefined". */
  activeProcessName: string;
  /** "screen.jpg" or "screen.png"; empty before the first picture. */
  filename: string;
}

/** A snapshot in memory. The buffers are empty when nothing could be captured. */
export interface SnapBuffers extends SnapDescription {
  /** The encoded picture. */
  data: Buffer;
  /** The encoded thumbnail, 620 x 320 pixels, in the same format. */
  dataThumbnail: Buffer;
}

/** A snapshot in two files, written by the host's utility functions. */
export interface SnapFiles extends SnapDescription {
  /** Full name of the picture's file. */
  ScreenFullPath: string;
  /** Full name of the thumbnail's file. */
  ThumbnailFullPath: string;
  /** The host's SHA-256 text of the picture's bytes. */
  screen_hash: string;
}

/** Counts of a process's handles; null where the platform does not know them. */
export interface ProcessHandlesInfo {
  handleCount: number | null;
  gdiObjectCount: number | null;
  guiUserObjectCount: number | null;
}

/** Times since the last input, in whole seconds; -1 where they are not known. */
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
  /** Keys pressed since the module was loaded; grows only between `init` and `teardown`. */
  keyboardActivity: number;
  /** Buttons pressed since then; wheel clicks less than a second apart count as one. */
  mouseActivity: number;
}

/**
 * Announces that the screen was locked or unlocked by calling its own `emit` with "screen_lock" or
 * "screen_unlock". The module gives it no `emit`: make it an event emitter. The newest object gets
 * the events, until it or an older one is collected: keep one, and keep it.
 */
export class ScreenLockMonitor {
  constructor();
  emit?(event: 'screen_lock' | 'screen_unlock'): unknown;
}

/**
 * Connects to the desktop session. Call it before anything that needs input, ticks, lock events or
 * window titles. It never fails visibly; a second call starts by releasing what the first one made.
 * Once connected it keeps a Node process alive until `teardown`.
 */
export function init(): void;

/**
 * Activity counts and the idle time: from the X screen saver on X11, from GNOME's compositor on
 * other sessions (waiting for its answer, at most the bus's time-out of 25 s).
 */
export function getInputInfo(): InputInfo;

/** Counts of a process's handles: always three nulls on Linux. */
export function getProcessHandlesInfo(pid: number): ProcessHandlesInfo;

/**
 * Takes a picture of the whole desktop, or of the monitor that shows the active window, fitted into
 * 1920 x 1080, while the caller waits. PNG unless `jpeg` is true. A Wayland session gives the whole
 * desktop for both, where its compositor lets the program in (see the README). While a selection is
 * open, it replaces the title and process that the selection will report.
 * @throws Error for any other type.
 */
export function getScreenSnap(type: 'desktop' | 'display', jpeg?: boolean): SnapBuffers;

/**
 * The same, saved into `folder` where the host process offers its utility functions. Falls back to
 * buffers when it does not, when the folder's name is empty and when a file cannot be written.
 */
export function getScreenSnap(
  type: 'desktop' | 'display',
  jpeg: boolean,
  folder: string,
): SnapFiles | SnapBuffers;

/** What `getScreenSnapAsync` calls back with; a PNG unless nothing was captured. */
export interface AsyncSnap extends SnapBuffers {
  /**
   * 0: completed, with empty buffers when nothing was captured or the rectangle was empty.
   * 102003: the selection failed or its overlay was taken away. 102005: cancelled with Escape.
   */
  errorCode: 0 | 102003 | 102005;
}

/**
 * Takes a PNG at full size and calls back once. "desktop" and "display" do so before the call
 * returns; "selection" opens an overlay in which the person drags out a rectangle, and calls back
 * when that ends. While a selection is open every further request is ignored, its callback never
 * called. Anything but a function as callback takes the snapshot and tells nobody.
 * @throws Error for any other type, unless a selection is open.
 */
export function getScreenSnapAsync(
  type: 'desktop' | 'display' | 'selection',
  callback?: (snap: AsyncSnap) => void,
): void;

/** Installs the logger; anything but a function sends the log back to standard error. */
export function setupLogger(logger: Logger | null | undefined): void;

/**
 * Calls `callback` every `interval` milliseconds, in place of the one before. 0 or less stops.
 * Periods missed by a busy thread make one call. Call it after `init`.
 */
export function setInterval(callback: () => void, interval: number): void;

/**
 * Starts the script that installs a .deb or .rpm file once this process has ended, and then the
 * application again when `relaunch` is true. 0 when the script waits; -1 when the path is refused
 * or no process can be started, with the reason in the log. Calling it twice starts two scripts.
 * @param path Should be absolute: `pkexec` runs the installation in another folder. May hold
 *   letters, digits, bytes above 0x7f and `/._-+:@%=,`; no leading `-`; `~` only after a letter or
 *   a digit, where no shell expands it.
 */
export function upgrade(path: string, relaunch?: boolean): 0 | -1;

/** Whether the session is anything but X11; decided from XDG_SESSION_TYPE when the module loads. */
export function isWayland(): boolean;

/**
 * Releases what `init` made and closes the process's connection to the session bus; an open
 * selection fails. Counters and callbacks survive. May be called at any time.
 */
export function teardown(): void;
