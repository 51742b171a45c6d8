'use strict';

const { Message, MessageType, sessionBus } = require('dbus-next');

/** Another program on a bus: answers calls as a test wants and sends signals. */
async function connect(address) {
  const bus = sessionBus({ busAddress: address });
  await new Promise((resolve, reject) => bus.on('connect', resolve).on('error', reject));
  const answers = {};
  const peer = {
    calls: [],
    own: (name) => bus.requestName(name, 4),
    close: () => bus.disconnect(),
    /** member: { signature, body }, { error, text }, 'hang' or a function that returns one. */
    answer: (more) => Object.assign(answers, more),
    emit: (path, iface, member, signature = '', body = []) =>
      bus.send(Message.newSignal(path, iface, member, signature, body)),
    async call(destination, path, iface, member, signature = '', body = []) {
      const call = { destination, path, interface: iface, member, signature, body };
      return (await bus.call(new Message(call))).body;
    },
    async hasOwner(name) {
      const DBUS = ['org.freedesktop.DBus', '/', 'org.freedesktop.DBus'];
      return (await peer.call(...DBUS, 'NameHasOwner', 's', [name]))[0];
    },
  };
  bus.addMethodHandler((call) => {
    if (call.type !== MessageType.METHOD_CALL || !(call.member in answers)) return false;
    peer.calls.push(call);
    const found = answers[call.member];
    const how = typeof found === 'function' ? found(call) : found;
    if (how === 'hang') return true;
    const { error, text = 'no', signature = '', body = [] } = how;
    if (error) bus.send(Message.newError(call, error, text));
    else bus.send(Message.newMethodReturn(call, signature, body));
    return true;
  });
  return peer;
}

module.exports = { connect };
