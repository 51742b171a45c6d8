'use strict';

const { Message, MessageType, sessionBus } = require('dbus-next');

/** Another program on a bus: answers calls as a test wants, and sends signals. */
async function connect(address) {
  const bus = sessionBus({ busAddress: address });
  await new Promise((resolve, reject) => bus.on('connect', resolve).on('error', reject));
  bus.on('error', () => {});
  const answers = {};
  const peer = {
    calls: [],
    own: (name) => bus.requestName(name, 4),
    close: () => bus.disconnect(),
    /** member: { signature, body } or { error, text } or 'hang', or a function of the call giving one. */
    answer: (more) => Object.assign(answers, more),
    emit: (path, iface, member, signature = '', body = []) =>
      bus.send(Message.newSignal(path, iface, member, signature, body)),
    /** Resolves when the daemon has everything sent before. */
    sync: () =>
      bus.call(
        new Message({
          destination: 'org.freedesktop.DBus',
          path: '/',
          interface: 'org.freedesktop.DBus',
          member: 'GetId',
        }),
      ),
    hasOwner: async (name) =>
      (
        await bus.call(
          new Message({
            destination: 'org.freedesktop.DBus',
            path: '/',
            interface: 'org.freedesktop.DBus',
            member: 'NameHasOwner',
            signature: 's',
            body: [name],
          }),
        )
      ).body[0],
    call: (destination, path, iface, member, signature = '', body = []) =>
      bus
        .call(new Message({ destination, path, interface: iface, member, signature, body }))
        .then((reply) => reply.body),
    unique: () => bus.name,
  };
  bus.addMethodHandler((call) => {
    if (call.type !== MessageType.METHOD_CALL || !(call.member in answers)) return false;
    peer.calls.push(call);
    const found = answers[call.member];
    const how = typeof found === 'function' ? found(call) : found;
    if (how === 'hang') return true;
    bus.send(
      how.error
        ? Message.newError(call, how.error, how.text || 'no')
        : Message.newMethodReturn(call, how.signature || '', how.body || []),
    );
    return true;
  });
  return peer;
}

module.exports = { connect };
