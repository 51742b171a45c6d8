// A stand-in for KWin's ScreenShot2, run by gjs, which can receive a pipe. Answers calls in turn
// with the answers given as JSON: { description, bytes, open }, { error }, { hang }, or {} for a
// reply of another type.
import Gio from 'gi://Gio';
import GLib from 'gi://GLib';
import System from 'system';

const NAME = 'org.kde.KWin.ScreenShot2';
const METHODS = ['CaptureWorkspace', 'CaptureActiveScreen'].map(
  (name) => `<method name="${name}"><arg type="a{sv}" direction="in"/>
    <arg type="h" direction="in"/><arg type="a{sv}" direction="out"/></method>`,
);
const answers = JSON.parse(System.programArgs[0]);
const kept = [];

function reply(invocation, { description, bytes = [], open, error, hang }, fds) {
  if (hang) return;
  if (error) return invocation.return_dbus_error(error, 'no');
  if (!description) {
    const message = invocation.get_message().new_method_reply();
    message.set_body(new GLib.Variant('(s)', ['a text']));
    return connection.send_message(message, Gio.DBusSendMessageFlags.NONE);
  }
  const values = Object.entries(description).map(([key, value]) => {
    return [key, new GLib.Variant(typeof value === 'string' ? 's' : 'u', value)];
  });
  invocation.return_value(new GLib.Variant('(a{sv})', [Object.fromEntries(values)]));
  const stream = new Gio.UnixOutputStream({ fd: fds.steal_fds()[0], close_fd: true });
  stream.write_all(Uint8Array.from(bytes), null);
  if (open) kept.push(stream);
  else stream.close(null);
}

const connection = Gio.bus_get_sync(Gio.BusType.SESSION, null);
const node = Gio.DBusNodeInfo.new_for_xml(
  `<node><interface name="${NAME}">${METHODS}</interface></node>`,
);
connection.register_object(
  '/org/kde/KWin/ScreenShot2',
  node.interfaces[0],
  (_connection, _sender, _path, _interface, method, parameters, invocation) => {
    console.log(method, JSON.stringify(parameters.recursiveUnpack()[0]));
    reply(invocation, answers.shift(), invocation.get_message().get_unix_fd_list());
  },
  null,
  null,
);
Gio.bus_own_name_on_connection(connection, 'org.kde.KWin', 0, () => console.log('ready'), null);
new GLib.MainLoop(null, false).run();
