// The page: a live connection to the program, and what it says handed to those who draw it.

import { setAttribute, setText } from './dom.js';
import { SetPicture } from './set.js';
import { World } from './world.js';
import { Application } from './application.js';
import { Lane } from './lanes.js';
import { Ringer } from './sound.js';

const NOTE_MS = 6000;
const AGAIN_MS = 400, AGAIN_LIMIT_MS = 3000;  // until the next try for a connection, ever longer
const byId = (id) => document.getElementById(id);

// --- the connection

let socket = null;
let pause = AGAIN_MS;

function connect() {
  const address = new URL('live', location.href);
  address.protocol = 'ws:';
  socket = new WebSocket(address);
  socket.onopen = () => {
    pause = AGAIN_MS;
    wire.restart();
    tapi?.restart();
    showLive('live', 'on');
  };
  socket.onmessage = (event) => take(JSON.parse(event.data));
  socket.onclose = () => {
    showLive('not connected', 'off');
    document.body.dataset.live = 'no';
    setTimeout(connect, pause);
    pause = Math.min(pause * 1.5, AGAIN_LIMIT_MS);
  };
}

function asks(whom) {
  return (words) => {
    if (socket?.readyState === WebSocket.OPEN) socket.send(JSON.stringify({ ask: whom, words }));
    else note('Not connected: the program is not there.');
  };
}

function showLive(text, state) {
  setText(byId('live'), text);
  setAttribute(byId('live'), 'data-state', state);
}

function note(text) {
  const node = document.createElement('p');
  node.textContent = text;
  byId('notes').append(node);
  setTimeout(() => node.remove(), NOTE_MS);
}

// --- what it says

const askSet = asks('set');
const picture = new SetPicture(byId('the-set'), askSet);
const world = new World(byId('the-world'), askSet);
const wire = new Lane(byId('the-lanes'), 'wire', 'On the wire', 'between card and PC, in words', { bytes: true });
const ringer = new Ringer();
let application = null, tapi = null;

function take(message) {
  if (message.set) showSet(message.set);
  if (message.application) showApplication(message.application);
  if (message.lines) {
    wire.add(message.lines.filter((line) => line.lane === 'wire'));
    tapi?.add(message.lines.filter((line) => line.lane === 'tapi'));
  }
  if (message.refused) note(message.refused.replaceAll(' / ', '\n'));
}

function showSet(set) {
  document.body.dataset.live = 'yes';
  picture.show(set);
  world.show(set);
  ringer.ring(set.ringing);
  setText(byId('title'), 'The set ' + set.number);
  document.title = (set.ringing ? '🔔 ' : '') + 'The set ' + set.number + ' - Corvane 6200';
  const there = set.line.provider;
  setText(byId('provider'), there ? 'provider on the line' : 'nobody on the line');
  setAttribute(byId('provider'), 'data-state', there ? 'on' : 'off');
}

function showApplication(state) {
  if (application === null) {
    byId('application-column').hidden = false;
    byId('jump-application').hidden = false;
    document.body.dataset.application = 'yes';
    application = new Application(byId('the-application'), asks('application'));
    tapi = new Lane(byId('tapi-lane'), 'tapi', 'What TAPI is told', 'events, answers, boxes');
  }
  application.show(state);
}

// --- the keyboard, as far as nobody types: digits dial, Alt with 1 to 5 is a soft key, H the handset

function isTyping(target) {
  return target.closest('input, select, textarea') !== null;
}

document.addEventListener('keydown', (event) => {
  if (isTyping(event.target) || event.ctrlKey || event.metaKey || event.repeat) return;
  const soft = /^Digit([1-5])$/.exec(event.code);
  if (event.altKey) {
    if (soft) askSet(['soft', soft[1]]);
    if (soft) event.preventDefault();
    return;
  }
  if (/^[0-9*#]$/.test(event.key)) askSet(['dial', event.key]);
  else if (event.key === 'h' || event.key === 'H') picture.handset.click();
});

// --- sound, light and dark

byId('sound').addEventListener('click', (event) => {
  const on = event.currentTarget.getAttribute('aria-pressed') !== 'true';
  setAttribute(event.currentTarget, 'aria-pressed', on);
  setText(event.currentTarget, on ? 'Sound on' : 'Sound off');
  ringer.set(on);
});

function storedTheme(value) {
  try {  // a browser may keep nothing at all
    if (value !== undefined) localStorage.setItem('theme', value);
    return localStorage.getItem('theme');
  } catch {
    return null;
  }
}

function showTheme(theme) {
  if (theme === 'light' || theme === 'dark') document.documentElement.dataset.theme = theme;
}

byId('theme').addEventListener('click', () => {
  const dark = document.documentElement.dataset.theme === 'dark' ||
    (document.documentElement.dataset.theme === undefined && matchMedia('(prefers-color-scheme: dark)').matches);
  showTheme(dark ? 'light' : 'dark');
  storedTheme(dark ? 'light' : 'dark');
});

showTheme(storedTheme());
connect();
