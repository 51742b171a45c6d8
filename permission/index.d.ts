/**
 * Whether the person lets the application take screenshots.
 *
 * - `'granted'`: the person has allowed it, for good.
 * - `'denied'`: the person has said no, and the desktop does not ask again. The answer can be
 *   changed in the desktop's privacy settings, or forgotten with
 *   `gdbus call --session --dest org.freedesktop.impl.portal.PermissionStore
 *   --object-path /org/freedesktop/impl/portal/PermissionStore
 *   --method org.freedesktop.impl.portal.PermissionStore.Delete screenshot screenshot`.
 * - `'unknown'`: the person has not been asked, did not answer, or wants to be asked each time.
 *   Snapshots give nothing.
 * - `'not needed'`: an X11 session, or a desktop that does not ask.
 * - `'unavailable'`: no session bus, no desktop portal that takes screenshots, or none that answers.
 *
 * It is the desktop portal's view. GNOME Shell and KWin let programs in by other ways, too, and
 * snapshots may succeed in any state.
 */
export type PermissionState = 'granted' | 'denied' | 'unknown' | 'not needed' | 'unavailable';

/**
 * The state now, while the caller waits: for milliseconds, for a second or two when it is the
 * first to use the portal, for three seconds at most when services hang, five when the bus does.
 */
export function state(): PermissionState;

/**
 * Has the desktop ask the person if the state is `'unknown'`, and resolves with the state after the
 * answer; never rejects. Never blocks: the question needs a GLib loop, as signals do, and may stand
 * for as long as the desktop lets it, 25 seconds as a rule; after 50 seconds the promise resolves
 * in any case. While a question is up, further calls share it and its answer. It keeps the process
 * alive until then. The desktop takes one picture to answer, which is deleted unread.
 *
 * Call it when the person has asked for it, from a button: the question is modal, Return and Escape
 * deny, and one denial is for good.
 */
export function ask(): Promise<PermissionState>;
