// The set as people know it: display, soft keys, programmable keys, keypad, handset, lamps.
//
//     const picture = new SetPicture(host, (words) => ...);   // without the second it is only looked at
//     picture.show(state);
//
// Plain state in, elements and SVG out; nothing here knows where the state comes from:
//
//     { number, display: [line0, line1], softKeys: [5 labels], keys: [{key, icon, kind, label}],
//       modules: [{address, offset}], lamps: [20 modes], ringing, handsetOff, calls: [{key, state, active, number, name}] }
//
// `words` of a press are a command of the equipment's script: ["press", "3"], ["soft", "1"], ["dial", "7"],
// ["off-hook"], ["release"].

import { button, element, setAttribute, setText, shape } from './dom.js';

const COLUMNS = 40;
const SOFT_KEYS = 5;
const OWN_KEYS = 28;      // on the set itself; the others stand on add-on modules
const LAST_KEY = 88;
const LEAST_OWN = 8, LEAST_ON_MODULE = 10;  // keys that are drawn though nothing is programmed
const DIGITS = [['1', ''], ['2', 'ABC'], ['3', 'DEF'], ['4', 'GHI'], ['5', 'JKL'], ['6', 'MNO'],
                ['7', 'PQRS'], ['8', 'TUV'], ['9', 'WXYZ'], ['*', ''], ['0', ''], ['#', '']];
const DIGIT_NAMES = { '*': 'star', '#': 'hash' };
const LAMP_MODES = { 1: 'steady', 3: 'flash', 4: 'flutter', 6: 'wink' };
const KINDS = { multi: 'line', supervision: 'supervision', boss: 'boss', secretary: 'secretary', overflow: 'overflow' };

// An icon's value: two bytes, one for each half. 0x20 and 0x80 light a half, 0x08 has it blink, 0x80 quickly.
export function iconOf(value) {
  const name = iconName(value);
  const half = (bits) => ({
    lit: (bits & 0xA0) !== 0,
    rate: (bits & 0x80) !== 0 || name === 'ringing' ? 'fast' : (bits & 0x08) !== 0 ? 'slow' : 'steady',
    rim: (bits & 0x54) !== 0,
  });
  return { name, left: half(value & 0xFF), right: half(value >> 8) };
}

function iconName(value) {
  switch (value & 0xA8A8) {
  case 0x2020: return 'active';
  case 0x2828: return 'held';
  case 0x2800: case 0xA000: case 0xA020: case 0xA0A0: return 'ringing';
  case 0: return (value & 0xFCFC) === 0 ? 'idle' : 'reserved';
  default: return 'unknown';
  }
}

class Icon {
  constructor() {
    this.left = shape('path', { d: 'M11 3a9 9 0 0 0 0 18z' });
    this.right = shape('path', { d: 'M13 3a9 9 0 0 1 0 18z' });
    this.node = shape('svg', { class: 'icon', viewBox: '0 0 24 24', 'aria-hidden': 'true' }, this.left, this.right);
  }

  show(value) {
    const icon = iconOf(value);
    setAttribute(this.node, 'data-state', icon.name);
    for (const side of ['left', 'right'])
      setAttribute(this[side], 'class', icon[side].lit ? 'lit ' + icon[side].rate : icon[side].rim ? 'rim' : 'dark');
    return icon.name;
  }
}

export class SetPicture {
  constructor(host, press) {
    this.press = press ?? (() => {});
    this.live = press !== undefined;
    this.keys = new Map();
    this.build(host);
  }

  build(host) {
    this.node = element('div', { class: 'set', 'data-live': this.live ? 'yes' : 'no' });
    this.node.append(this.buildHead(), this.buildDisplay(), this.buildBody(), this.buildLamps());
    this.modules = element('div', { class: 'modules' });
    this.said = element('div', { class: 'unseen', role: 'status' });
    this.alarm = element('div', { class: 'unseen', role: 'alert' });
    host.append(element('div', { class: 'set-place' }, this.node, this.modules), this.said, this.alarm);
  }

  key(attributes, words, ...children) {
    return button('', { disabled: !this.live, onclick: () => this.press(words()), ...attributes }, ...children);
  }

  buildHead() {
    this.number = element('span', { class: 'set-number' });
    this.beacon = element('span', { class: 'beacon', 'aria-hidden': 'true' });
    return element('div', { class: 'set-head' }, element('span', { class: 'set-make' }, 'CORVANE'), this.number,
                   this.beacon);
  }

  // A cell for each character, so that labels stand over their keys whatever the font.
  buildDisplay() {
    this.lines = [0, 1].map(() => {
      const cells = Array.from({ length: COLUMNS }, () => element('span'));
      return { cells, node: element('div', { class: 'display-line', 'aria-hidden': 'true' }, ...cells), text: null };
    });
    this.softKeys = Array.from({ length: SOFT_KEYS }, (_, i) =>
      this.key({ class: 'soft-key', 'data-soft': i + 1 }, () => ['soft', String(i + 1)]));
    this.displayText = element('p', { class: 'unseen' });
    return element('div', { class: 'display-place' },
                   element('div', { class: 'display' }, ...this.lines.map((line) => line.node), this.displayText),
                   element('div', { class: 'soft-keys', role: 'group', 'aria-label': 'Soft keys' }, ...this.softKeys));
  }

  buildBody() {
    this.ownKeys = element('div', { class: 'line-keys', role: 'group', 'aria-label': 'Line keys' });
    const pad = DIGITS.map(([digit, letters]) =>
      this.key({ class: 'digit', 'data-digit': digit, 'aria-label': DIGIT_NAMES[digit] ?? digit }, () => ['dial', digit],
               element('b', {}, digit), element('small', { 'aria-hidden': 'true' }, letters)));
    this.release = this.key({ class: 'function-key release', 'aria-label': 'Release key' }, () => ['release'],
                            element('span', {}, 'Release'));
    return element('div', { class: 'set-body' }, this.buildHandset(), this.ownKeys,
                   element('div', { class: 'pad', role: 'group', 'aria-label': 'Keypad' },
                           element('div', { class: 'digits' }, ...pad), this.release));
  }

  buildHandset() {
    const picture = shape('svg', { viewBox: '0 0 72 216', 'aria-hidden': 'true' },
      shape('rect', { class: 'cradle', x: 8, y: 8, width: 56, height: 200, rx: 22 }),
      shape('path', { class: 'cord', d: 'M36 200c-16 6-16 12 0 14' }),
      shape('path', { class: 'receiver', d: 'M20 14h32a12 12 0 0 1 12 12v30a10 10 0 0 1-10 10h-2q-4 42 0 84h2a10 10 0 0 1 10 10v30a12 12 0 0 1-12 12H20A12 12 0 0 1 8 190v-30a10 10 0 0 1 10-10h2q4-42 0-84h-2A10 10 0 0 1 8 56V26a12 12 0 0 1 12-12z' }),
      ...[26, 36, 46].flatMap((x) => [30, 40, 50].map((y) => shape('circle', { class: 'hole', cx: x, cy: y, r: 2 }))),
      ...[30, 42].flatMap((x) => [172, 182].map((y) => shape('circle', { class: 'hole', cx: x, cy: y, r: 2 }))));
    this.handsetText = element('span', {});
    this.handset = this.key({ class: 'handset' }, () => [this.lifted ? 'release' : 'off-hook'], picture, this.handsetText);
    return this.handset;
  }

  buildLamps() {
    this.lamps = Array.from({ length: 20 }, () => element('i', {}));
    this.lampStrip = element('div', { class: 'lamps', role: 'img' }, ...this.lamps);
    return this.lampStrip;
  }

  // --- what changes

  show(state) {
    setText(this.number, state.number);
    this.showDisplay(state);
    this.showKeys(state);
    this.showHandset(state);
    this.showLamps(state);
    setAttribute(this.node, 'data-ringing', state.ringing ? 'yes' : 'no');
    setText(this.alarm, state.ringing ? 'The set rings. ' + state.display[0].trim() : '');
    setText(this.said, state.display[0].trim());
  }

  showDisplay(state) {
    this.lines.forEach((line, i) => {
      const text = state.display[i];
      if (line.text === text) return;
      line.text = text;
      const characters = Array.from(text);
      line.cells.forEach((cell, column) => setText(cell, (characters[column] ?? ' ') === ' ' ? '\u00a0' : characters[column]));
    });
    setText(this.displayText, 'Display: ' + (state.display[0].trim() || 'blank'));
    this.softKeys.forEach((key, i) =>
      setAttribute(key, 'aria-label', 'Soft key ' + (i + 1) + ', ' + (state.softKeys[i] || 'blank')));
    this.softKeys.forEach((key, i) => setAttribute(key, 'data-label', state.softKeys[i] || null));
  }

  showKeys(state) {
    const plan = planOf(state);
    const text = JSON.stringify(plan);
    if (text !== this.plan) {
      this.plan = text;
      this.keys.clear();
      this.ownKeys.replaceChildren(...plan.own.map((key) => this.buildKey(key)));
      this.modules.replaceChildren(...plan.modules.map((module) => this.buildModule(module)));
    }
    const icons = new Map(state.keys.map((key) => [key.key, key.icon]));
    for (const [number, key] of this.keys) {
      const name = key.icon.show(icons.get(number) ?? 0);
      const calls = state.calls.filter((call) => call.key === number);
      const status = calls.length > 0 ? calls.map((call) => call.state).join(', ') : name === 'idle' ? '' : name;
      setText(key.status, status);
      setAttribute(key.node, 'data-state', name);
      setAttribute(key.node, 'aria-label', ['Key ' + number, key.what, status].filter(Boolean).join(', '));
    }
  }

  buildKey(key) {
    const icon = new Icon();
    const status = element('small', { class: 'key-status' });
    const kind = key.kind === undefined ? '' : KINDS[key.kind] ?? key.kind;
    const node = this.key({ class: key.kind === undefined ? 'line-key blank' : 'line-key', 'data-key': key.key },
                          () => ['press', String(key.key)], icon.node,
                          element('span', { class: 'key-strip' }, element('b', {}, key.label ?? ''),
                                  element('small', {}, kind)),
                          status, element('span', { class: 'key-number' }, String(key.key)));
    this.keys.set(key.key, { node, icon, status, what: [kind, key.label].filter(Boolean).join(' ') || 'not programmed' });
    return node;
  }

  buildModule(module) {
    const title = 'Add-on module ' + module.address;
    return element('div', { class: 'module' }, element('div', { class: 'module-head', 'aria-hidden': 'true' }, title),
                   element('div', { class: 'line-keys', role: 'group', 'aria-label': title },
                           ...module.keys.map((key) => this.buildKey(key))));
  }

  showHandset(state) {
    this.lifted = state.handsetOff || state.calls.some((call) => call.active);
    setAttribute(this.handset, 'data-lifted', this.lifted ? 'yes' : 'no');
    setAttribute(this.handset, 'aria-pressed', this.lifted ? 'true' : 'false');
    setAttribute(this.handset, 'aria-label', this.lifted ? 'Handset, lifted: put it down' : 'Handset, down: lift it');
    setText(this.handsetText, this.lifted ? 'put down' : 'lift');
  }

  showLamps(state) {
    const lit = [];
    this.lamps.forEach((lamp, i) => {
      const mode = state.lamps[i] ?? 0;
      const name = mode === 0 ? 'off' : LAMP_MODES[mode] ?? 'mode ' + mode;
      setAttribute(lamp, 'data-mode', mode === 0 ? null : LAMP_MODES[mode] ?? 'steady');
      setAttribute(lamp, 'title', 'lamp ' + i + ': ' + name);
      if (mode !== 0) lit.push(i + ' ' + name);
    });
    setAttribute(this.lampStrip, 'aria-label', lit.length > 0 ? 'Lamps: ' + lit.join(', ') : 'Lamps: all off');
  }
}

// Which keys are drawn where: those that are programmed or lit, and blank ones between and behind them.
function planOf(state) {
  const known = new Map(state.keys.map((key) => [key.key, { key: key.key, kind: key.kind, label: key.label }]));
  const range = (first, last, least) => {
    const used = [...known.keys()].filter((key) => key >= first && key <= last);
    const end = Math.min(last, Math.max(first + least - 1, ...used));
    const keys = [];
    for (let key = first; key <= end; ++key) keys.push(known.get(key) ?? { key });
    return keys;
  };
  const modules = [...state.modules].sort((a, b) => a.offset - b.offset);
  return {
    own: range(1, OWN_KEYS, LEAST_OWN),
    modules: modules.map((module, i) => ({
      address: module.address,
      keys: range(Math.max(module.offset, OWN_KEYS) + 1, modules[i + 1]?.offset ?? LAST_KEY, LEAST_ON_MODULE),
    })),
  };
}
