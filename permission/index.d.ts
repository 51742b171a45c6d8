/**
 * Whether the person lets the application take screenshots.
 *
 * - `'granted'`: the person has allowed it, for good.
 * - `'denied'`: the person has said no, and the desktop does not ask again. The person can change
 *   the answer in the desktop's privacy settings, or delete it with
 *   `gdbus call --session --dest org.freedesktop.impl.portal.PermissionStore
 *   --object-path /org/freedesktop/impl/portal/PermissionStore
 *   --method org.freedesktop.impl.portal.PermissionStore.Delete screenshot screenshot`.
 * - `'unknown'`: the person has not been asked, did not answer, or wants to be asked each time.
 *   The portal gives no snapshot.
 * - `'not needed'`: an X11 session, or a desktop that does not ask.
 * - `'unavailable'`: no session bus, or no desktop portal that takes screenshots and answers.
 *
 * This is the desktop portal's permission. GNOME Shell and KWin have other ways to let programs in,
 * so a snapshot may succeed in any state.
 */
export type PermissionState = 'granted' | 'denied' | 'unknown' | 'not needed' | 'unavailable';

/**
 * Returns the current state. Blocks for milliseconds as a rule, for a second or two when it starts
 * the portal, for three seconds at most when services hang, for five when the session bus hangs.
 */
export function state(): PermissionState;

/**
 * Shows the desktop's question if the state is `'unknown'`, and resolves with the state after the
 * answer. Never rejects and never blocks. It needs a running GLib main loop, as lock events do.
 *
 * The question may stay for as long as the desktop allows, 25 seconds as a rule. The promise
 * resolves after 50 seconds in any case, and keeps the process alive until then. Calls during a
 * question share it and its answer. The desktop takes one picture as its answer; the module deletes
 * it unread.
 *
 * Call it from a button: the question is modal, Return and Escape deny, and a denial is permanent.
 */
export function ask(): Promise<PermissionState>;
