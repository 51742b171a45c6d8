// Compiled, never run: the declarations have to fit a consumer's code.
import * as kiv from '../..';

const logger: kiv.Logger = (level, text) => console.log(level.toUpperCase(), text.length);
kiv.setupLogger(logger);
kiv.setupLogger(null);
kiv.init();
const wayland: boolean = kiv.isWayland();
const memory: kiv.SnapBuffers = kiv.getScreenSnap('desktop');
const bytes: number = memory.data.length + memory.dataThumbnail.length;
const saved = kiv.getScreenSnap('display', true, '/tmp');
const where: string = 'ScreenFullPath' in saved ? saved.ScreenFullPath : saved.filename;
const handles: number | null = kiv.getProcessHandlesInfo(1).handleCount;
const idle: number = kiv.getInputInfo().last.input;
kiv.setInterval(() => console.log(kiv.getInputInfo().keyboardActivity), 1000);
class Monitor extends kiv.ScreenLockMonitor {
  emit(event: 'screen_lock' | 'screen_unlock') { console.log(event); }
}
new Monitor();
const waiting: boolean = kiv.upgrade('/tmp/brenik.deb') === 0 || kiv.upgrade('/tmp/brenik.rpm', true) === 0;
// @ts-expect-error an unknown type throws at run time
kiv.getScreenSnap('selection');
kiv.getScreenSnapAsync('selection', (snap) => {
  const code: 0 | 102003 | 102005 = snap.errorCode;
  console.log(code, snap.data.length);
});
kiv.getScreenSnapAsync('desktop');
// @ts-expect-error an unknown type throws at run time
kiv.getScreenSnapAsync('window', () => {});
kiv.teardown();
export { bytes, handles, idle, waiting, wayland, where };
