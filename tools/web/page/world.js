// The world behind the set: who calls, what the far ends do, where calls are forwarded to, and what is wrong with the
// line.

import { button, choice, element, labelled, setText } from './dom.js';

const CALLERS = [
  ['01 45 67 89 01', ['0145678901']],
  ['4722 ROUX', ['4722', 'ROUX']],
  ['Hélène DUPRÉ', ['-', 'Hélène DUPRÉ']],
  ['no caller shown', ['4720', 'nocaller']],
];
const SHOWN = [['', 'at once'], ['late', 'after 1.5 s'], ['nocaller', 'never']];
const REASONS = [['0', 'direct'], ['1', 'forwarded, busy'], ['2', 'forwarded, no answer'], ['3', 'forwarded, always'],
                 ['8', 'transferred'], ['9', 'reminder']];
const DOES = [['script', 'waits for you'], ['answers', 'rings, then answers'], ['never-answers', 'rings'],
              ['busy', 'is busy'], ['not-obtainable', 'does not exist']];
const DOES_NAMES = Object.fromEntries(DOES);
const OTHERWISE_MS = { answers: '1200', busy: '600' };
const VERSIONS = [['1', '1'], ['2', '2'], ['3', '3']];
const FORWARDS = [['4', 'not forwarded'], ['0', 'always'], ['1', 'when busy'], ['2', 'without an answer'],
                  ['3', 'when busy or without an answer']];

// What is wrong with the line: whether it is, and what brings it about. A cut cable carries neither bytes nor CTS.
const FAULTS = [
  { name: 'Silence', hint: 'no bytes either way', is: (line) => line.silent && !line.ctsLow,
    set: (on) => [['cts-low', 'off'], ['silence', on ? 'on' : 'off']] },
  { name: 'Cable cut', hint: 'no bytes, CTS low', is: (line) => line.silent && line.ctsLow,
    set: (on) => [['silence', on ? 'on' : 'off'], ['cts-low', on ? 'on' : 'off']] },
  { name: 'CTS low', hint: 'the PC may not send', is: (line) => line.ctsLow && !line.silent,
    set: (on) => [['silence', 'off'], ['cts-low', on ? 'on' : 'off']] },
  { name: 'Flipped bits', hint: 'in every fourth frame', is: (line) => line.flipEvery > 0,
    set: (on) => [['flip-every', on ? '4' : '0']] },
  { name: 'Lost frames', hint: 'every fourth', is: (line) => line.loseEvery > 0,
    set: (on) => [['lose-every', on ? '4' : '0']] },
  { name: 'PBX mute', hint: 'answers no request', is: (line) => line.noAnswers,
    set: (on) => [['no-answers', on ? 'on' : 'off']] },
  { name: 'No copies', hint: 'of what PBX and set say', is: (line) => line.noHeaders,
    set: (on) => [['no-headers', on ? 'on' : 'off']] },
];

// What the far end of a call may do: [text, words].
function deeds(call, party, called) {
  const key = String(call.key);
  const named = called === '' ? [] : [called];
  const hangUp = ['caller-hangs-up', key];
  const other = [party.number, party.name].filter(Boolean);
  const hasOther = party.number !== '';
  switch (call.state) {
  case 'ringing': return [['gives up', hangUp], ['caller shows', ['caller', key]],
                          hasOther && ['hands over', ['far-transfers', key, ...other]]];
  case 'dialling': return [['rings', ['far-rings', ...named]], ['answers', ['far-answers', ...named]], ['is busy', ['far-busy']],
                           hasOther && ['goes on', ['far-diverts', ...other]]];
  case 'far end rings': return [['answers', ['far-answers', ...named]], ['is busy', ['far-busy']],
                                hasOther && ['goes on', ['far-diverts', ...other]]];
  case 'connected': return [['hangs up', [...hangUp, 'slot', String(call.slot)]], ['hangs up, set asks', [...hangUp, 'prompt', 'slot', String(call.slot)]],
                            hasOther && ['hands over', ['far-transfers', key, ...other]]];
  case 'held': return [['hangs up', [...hangUp, 'slot', String(call.slot)]], ['rings back', ['recall', key]]];
  case 'rings back': return [['hangs up', hangUp]];
  case 'conferenced': return [['leaves', [...hangUp, 'slot', String(call.slot)]]];
  default: return [];
  }
}

export class World {
  constructor(host, ask) {
    this.ask = ask;
    this.state = null;
    host.append(this.buildCallers(), this.buildCalls(), this.buildCalled(), this.buildForward(), this.buildFaults());
  }

  group(title, ...children) {
    return element('div', { class: 'group', role: 'group', 'aria-label': title }, element('h3', {}, title), ...children);
  }

  // --- who calls

  buildCallers() {
    this.key = choice([], { name: 'key' });
    this.number = element('input', { name: 'number', value: '0145678901', inputmode: 'tel', autocomplete: 'off' });
    this.name = element('input', { name: 'name', autocomplete: 'off' });
    this.shown = choice(SHOWN, { name: 'shown' });
    this.reason = choice(REASONS, { name: 'reason' });
    const form = element('form', { onsubmit: (event) => { event.preventDefault(); this.callIn(); } },
      labelled('Number', this.number), labelled('Name', this.name), labelled('Caller shows', this.shown),
      labelled('Reason', this.reason), element('button', { type: 'submit', class: 'main' }, 'Call'));
    return this.group('A call comes in',
      element('div', { class: 'row' }, labelled('on', this.key, { class: 'field inline' }),
              ...CALLERS.map(([text, words]) => button(text, { class: 'caller', onclick: () => this.ring(words) }))),
      element('details', {}, element('summary', {}, 'Another caller'), form));
  }

  ring(words) {
    this.ask(['incoming', this.key.value, ...words]);
  }

  callIn() {
    this.ring([this.number.value.trim() || '-', this.name.value.trim(), this.shown.value].filter(Boolean)
      .concat(this.reason.value === '0' ? [] : ['reason', this.reason.value]));
  }

  // --- what the far ends do

  buildCalls() {
    this.calls = element('ul', { class: 'far-ends' });
    this.otherNumber = element('input', { value: '4733', inputmode: 'tel', autocomplete: 'off', oninput: () => this.showCalls() });
    this.otherName = element('input', { value: 'PETIT', autocomplete: 'off', oninput: () => this.showCalls() });
    this.called = element('input', { class: 'called', value: 'MARTIN', autocomplete: 'off', oninput: () => this.showCalls() });
    this.calledName = labelled('Who is called shows as', this.called);
    this.tones = element('p', { class: 'faint', hidden: true });
    this.other = element('div', { class: 'row' }, labelled('Hands over or goes on to', this.otherNumber),
                         labelled('Name', this.otherName));
    return this.group('Far ends', this.calls, this.calledName, this.other, this.tones);
  }

  showCalls() {
    const { calls, tones } = this.state;
    setText(this.tones, 'Tones sent: ' + tones);
    this.tones.hidden = !calls.some((call) => call.tones);
    const party = { number: this.otherNumber.value.trim(), name: this.otherName.value.trim() };
    const called = this.called.value.trim();
    const text = JSON.stringify([calls, party, called]);
    if (text === this.callsText) return;
    this.callsText = text;
    // The rows are made anew; who stood on a button goes on there.
    const focused = document.activeElement?.dataset?.deed;
    this.calls.replaceChildren(...calls.map((call) => this.row(call, deeds(call, party, called).filter(Boolean))));
    if (calls.length === 0) this.calls.append(element('li', { class: 'faint' }, 'No calls. Let somebody call, or dial.'));
    if (focused) this.calls.querySelector(`[data-deed="${CSS.escape(focused)}"]`)?.focus();
    this.calledName.hidden = !calls.some((call) => call.state === 'dialling' || call.state === 'far end rings');
    this.other.hidden = calls.length === 0;
  }

  row(call, all) {
    return element('li', {},
      element('div', { class: 'far-end' }, element('b', {}, [call.name, call.number].filter(Boolean).join(' ') || 'nobody yet'),
              element('small', {}, 'key ' + call.key + ', ' + call.state)),
      element('div', { class: 'row' }, ...all.map(([name, words]) =>
        button(name, { onclick: () => this.ask(words), 'data-deed': call.key + ' ' + name }))));
  }

  // --- who can be called

  buildCalled() {
    this.otherwise = choice(DOES, { onchange: () => this.ask(['destination', 'any', this.otherwise.value,
      ...(OTHERWISE_MS[this.otherwise.value] ? [OTHERWISE_MS[this.otherwise.value]] : [])]) });
    this.known = element('ul', { class: 'book' });
    this.waiting = element('ul', { class: 'book' });
    return element('details', { class: 'group' }, element('summary', {}, element('h3', {}, 'Who can be called')),
      this.known, labelled('Any other number', this.otherwise, { class: 'field inline' }), this.waiting,
      button('A call rings at 4780', { onclick: () => this.ask(['waits-at', '4780', '4725', 'MOREL']) }));
  }

  showCalled() {
    const { known, otherwise, waiting } = this.state.world;
    const text = JSON.stringify([known, waiting]);
    this.otherwise.value = otherwise.does;
    if (text === this.calledText) return;
    this.calledText = text;
    this.known.replaceChildren(...known.map((entry) => element('li', {}, element('b', {}, entry.number), ' ' + entry.name,
      element('small', {}, DOES_NAMES[entry.does]))));
    this.waiting.replaceChildren(...waiting.map((entry) => element('li', {}, element('b', {}, entry.address),
      ' rings: ' + [entry.name, entry.number].filter(Boolean).join(' '), element('small', {}, 'to be picked up'))));
  }

  // --- forwarding

  buildForward() {
    this.forward = choice(FORWARDS);
    this.forwardTo = element('input', { value: '4799', inputmode: 'tel', autocomplete: 'off' });
    return this.group('Forwarding', element('form', { class: 'row', onsubmit: (event) => { event.preventDefault(); this.sendForward(); } },
      labelled('Calls are', this.forward), labelled('To', this.forwardTo, { class: 'field short' }),
      element('button', { type: 'submit' }, 'Set')));
  }

  sendForward() {
    const off = this.forward.value === '4';
    this.ask(['forward', this.forward.value, ...(off ? [] : [this.forwardTo.value.trim()])]);
  }

  showForward() {
    const { status, to } = this.state.world.forward;
    const text = status + ' ' + to;
    if (text === this.forwardText) return;
    this.forwardText = text;
    this.forward.value = String(status);
    if (to !== '') this.forwardTo.value = to;
  }

  // --- the line

  buildFaults() {
    this.faults = FAULTS.map((fault) => {
      const box = element('input', { name: fault.name, type: 'checkbox', role: 'switch', onchange: () =>
        fault.set(box.checked).forEach((words) => this.ask(words)) });
      return { fault, box, node: element('label', { class: 'switch' }, box,
        element('span', {}, fault.name, element('small', {}, fault.hint))) };
    });
    this.counters = element('p', { class: 'faint counters' });
    this.version = choice(VERSIONS, { class: 'version', onchange: () => this.ask(['set', 'version', this.version.value]) });
    this.superFrames = element('input', { name: 'Super frames', type: 'checkbox', role: 'switch', onchange: () =>
      this.ask(['set', 'super', this.superFrames.checked ? 'on' : 'off']) });
    return this.group('The line', element('div', { class: 'switches' }, ...this.faults.map((entry) => entry.node)),
      this.counters,
      element('details', {}, element('summary', {}, 'Card and PBX, from the next opening on'),
        element('div', { class: 'switches' }, labelled('PBX speaks version', this.version),
          element('label', { class: 'switch good' }, this.superFrames,
                  element('span', {}, 'Super frames', element('small', {}, 'several messages in one'))))));
  }

  showLine() {
    const line = this.state.line;
    for (const { fault, box } of this.faults) box.checked = fault.is(line);
    this.version.value = String(this.state.version);
    this.superFrames.checked = line.superFrames;
    setText(this.counters, `${line.in} frames in, ${line.out} out; ${line.damaged} damaged, ${line.again} again, ` +
      `${line.refused} refused; ${line.bps === 0 ? 'not paced' : line.bps + ' baud'}`);
  }

  showKeys() {
    const keys = this.state.keys.filter((key) => key.kind !== undefined);
    const text = JSON.stringify(keys.map((key) => [key.key, key.label]));
    if (text !== this.keysText) {
      this.keysText = text;
      this.key.replaceChildren(...keys.map((key) => element('option', { value: key.key }, 'key ' + key.key + '  ' + key.label)));
    }
    // The first key without a call, unless the chosen one has none.
    const busy = new Set(this.state.calls.map((call) => String(call.key)));
    if (busy.has(this.key.value) || this.key.value === '') {
      const free = keys.find((key) => !busy.has(String(key.key)) && key.kind === 'multi');
      if (free) this.key.value = String(free.key);
    }
  }

  show(state) {
    this.state = state;
    this.showKeys();
    this.showCalls();
    this.showCalled();
    this.showForward();
    this.showLine();
  }
}
