'use strict';

// The person at the computer, and the programs beside the application: real input, windows that come,
// change their titles and die, and a screen saver on the bus. Keeps count of all that it did.
/* global X, until */

const path = require('path');
const overlay = require('../../test/helpers/overlay');

const SAVER = ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged'];
const BARE = '/bench';
const EVENTS_A_ROUND = 20;
const [KEYS_A_ROUND, CLICKS_A_ROUND] = [4, 1];

async function makePerson({ env }, app, { width, height }) {
  const build = path.join(__dirname, '..', '..', 'build', 'Release');
  global.X = require(path.join(build, 'x_client.node'));
  global.until = require('../../test/helpers/until').until;
  const crowd = require(path.join(build, 'bench_soak.node'));
  const bus = require(path.join(build, 'dbus_peer.node'));
  crowd.connect(env.DISPLAY);
  bus.connect(env.DBUS_SESSION_BUS_ADDRESS);
  const client = X.open(env.DISPLAY);
  const root = client.rootWindow(0);
  await overlay.desktop(client, width, height);

  const did = { keys: 0, clicks: 0, events: 0, locks: 0, titles: 0, deaths: 0, selections: 0 };
  const heardBefore = { screen_lock: 0, screen_unlock: 0 };
  let window = 0;

  const setTitle = () => {
    client.setProperty(
      window,
      '_NET_WM_NAME',
      'UTF8_STRING',
      8,
      Buffer.from(`Document ${++did.titles}`),
    );
  };
  const isActive = (id) => {
    const property = client.getProperty(root, '_NET_ACTIVE_WINDOW');
    return property && property.count === 1 && property.data.readUInt32LE(0) === id;
  };
  const makeWindow = () => {
    const id = client.createWindow({ x: 40, y: 40, width: 300, height: 200, color: 0x336699 });
    client.setProperty(id, '_NET_WM_NAME', 'UTF8_STRING', 8, Buffer.from(`Document ${did.titles}`));
    client.map(id);
    return id;
  };
  const activate = (id) =>
    until(
      () => {
        if (!isActive(id)) client.activate(id);
        return isActive(id) && client.focusedWindow() === id;
      },
      { what: 'an active window' },
    );

  const act = (...steps) => {
    overlay.act(client, ...steps);
    did.events += steps.length;
    did.clicks += steps.filter((step) => step.startsWith('p')).length;
  };
  const escape = () => {
    overlay.key(client, overlay.ESCAPE);
    did.events += 2;
    ++did.keys;
  };

  const person = {
    did,
    async newWindow() {
      window = makeWindow();
      await activate(window);
    },
    /** The active window goes without a word; whoever asks the server for it meets its death. */
    killWindow() {
      client.destroy(window);
      ++did.deaths;
    },
    work(events) {
      const rounds = Math.ceil(events / EVENTS_A_ROUND);
      crowd.act(rounds, 150, 120);
      did.events += rounds * EVENTS_A_ROUND;
      did.keys += rounds * KEYS_A_ROUND;
      did.clicks += rounds * CLICKS_A_ROUND;
    },
    /** The same for nobody: returns how many keys and clicks. */
    workUnseen(events) {
      const rounds = Math.ceil(events / EVENTS_A_ROUND);
      crowd.act(rounds, 150, 120);
      return rounds * (KEYS_A_ROUND + CLICKS_A_ROUND);
    },
    setTitle,
    lock(count, bare = false) {
      for (let i = 0; i < count; ++i)
        bus.emit(bare ? BARE : SAVER[0], SAVER[1], SAVER[2], i % 2 ? '(false,)' : '(true,)');
      if (!bare) did.locks += count;
    },
    /** Match rules reach the bus in their own time; what comes after a signal that was heard is heard. */
    async untilHeard() {
      const before = await app.ask('heard');
      await until(
        async () => {
          bus.emit(...SAVER, '(true,)');
          return (await app.ask('heard')).screen_lock > before.screen_lock;
        },
        { what: 'the subscription' },
      );
      bus.emit(...SAVER, '(false,)');
      await until(async () => (await app.ask('heard')).screen_unlock > before.screen_unlock, {
        what: 'the last signal',
      });
      const after = await app.ask('heard');
      heardBefore.screen_lock += after.screen_lock - before.screen_lock;
      heardBefore.screen_unlock += after.screen_unlock - before.screen_unlock;
    },
    async counts() {
      const { keys, clicks } = await app.ask('counted');
      const heard = await app.ask('heard');
      const sum = ({ screen_lock, screen_unlock }) => screen_lock + screen_unlock;
      return { keys, clicks, locks: sum(heard) - sum(heardBefore) };
    },
    /** Waits until all that was done has been counted; throws when it does not come to that. */
    async settled() {
      let seen;
      const expected = () => `${did.keys} keys, ${did.clicks} clicks, ${did.locks} locks`;
      try {
        await until(
          async () => {
            seen = await person.counts();
            return seen.keys === did.keys && seen.clicks === did.clicks && seen.locks === did.locks;
          },
          { timeout: 60000 },
        );
      } catch (error) {
        throw new Error(`sent ${expected()}; counted ${JSON.stringify(seen)}`);
      }
    },

    /** One selection, ended in the given way; returns the complaint when it ended otherwise. */
    async select(ending, number) {
      act('m 400 300');
      await app.ask('select');
      const id = await until(() => overlay.findOverlay(client, app.pid), {
        timeout: 60000,
        what: 'the overlay',
      });
      await until(() => overlay.onScreen(client, id), { what: 'the overlay on the screen' });
      const [right, bottom] = [410 + ((number * 37) % 200), 310 + ((number * 53) % 150)];
      const drag = async () => {
        act('m 400 300', 'p');
        await app.ask('forgetTurns');
        for (let i = 1; i <= 8; ++i) {
          act(
            `m ${400 + Math.round(((right - 400) * i) / 8)} ${300 + Math.round(((bottom - 300) * i) / 8)}`,
          );
        }
        await app.ask('turns', 'pointer steps of a drag');
      };
      const ways = {
        drag: async () => {
          await drag();
          act('r');
        },
        click: () => act('p', 'r'),
        escape: () => escape(),
        'escape in a drag': async () => {
          await drag();
          escape();
          act('r');
        },
        // A window manager may keep the focus where somebody types, and a focus that is lost within the
        // grace after the first picture does not count: back and forth.
        focus: () =>
          until(
            async () => {
              client.activate(window);
              if ((await app.ask('selected')).length) return true;
              try {
                if (client.focusedWindow() === window) client.activate(id);
              } catch (error) {
                // It went meanwhile.
              }
              return false;
            },
            { timeout: 60000, what: 'the end by focus' },
          ),
        teardown: () => person.restart(),
        closed: () => client.closeWindow(id),
        destroyed: () => client.destroy(id),
      };
      const codes = { drag: 0, click: 0, escape: 102005, 'escape in a drag': 102005 };
      const code = ending in codes ? codes[ending] : 102003;
      await app.ask('forgetTurns');
      await ways[ending]();
      const results = await until(
        async () => {
          const all = await app.ask('selected');
          return all.length > 0 && all;
        },
        { timeout: 60000, what: 'the end of the selection' },
      );
      await app.ask('turns', `end of a selection by ${ending}`);
      await until(() => !overlay.findOverlay(client, app.pid), { what: 'the overlay to be gone' });
      ++did.selections;
      await activate(window);
      const size = ending === 'drag' ? [right - 400, bottom - 300] : [0, 0];
      const [{ errorCode, width: w, height: h, bytes }] = results;
      const good =
        results.length === 1 &&
        errorCode === code &&
        w === size[0] &&
        h === size[1] &&
        bytes > 0 === w > 0;
      return good ? null : `selection ${ending}: ${JSON.stringify(results)}`;
    },

    async restart() {
      await person.settled();
      await app.ask('teardown');
      await app.ask('init');
      await person.untilHeard();
    },
    resources: () => client.resourcesOfProcess(app.pid),
    /** As untilHeard(), for the bare listener. */
    async untilBareHeard() {
      await app.ask('listen', BARE);
      const before = (await app.ask('heard')).bare;
      await until(
        async () => {
          person.lock(1, true);
          return (await app.ask('heard')).bare > before;
        },
        { what: 'the bare subscription' },
      );
    },
    leave() {
      client.close();
      bus.close();
    },
  };
  return person;
}

module.exports = { makePerson };
