// An application beside the set: what TAPI tells of line, phone and calls, and what it lets one ask for.

import { button, choice, element, labelled, setAttribute, setText } from './dom.js';

const FORWARDS = [['uncond', 'all calls'], ['busy', 'when busy'], ['noanswer', 'without an answer'],
                  ['busyna', 'when busy or without an answer']];
const PARTIES = [['caller', 'Caller'], ['called', 'Called'], ['connected', 'Connected'],
                 ['redirecting', 'Redirecting'], ['redirection', 'Redirected to']];

// What a call's features allow, in the order of the buttons: feature, text, words. `text` of those that take a number or
// digits is what the field in front of them says.
const ACTS = [
  { feature: 'ANSWER', text: 'Answer', main: true, words: (call) => ['answer', call] },
  { feature: 'HOLD', text: 'Hold', words: (call) => ['hold', call] },
  { feature: 'UNHOLD', text: 'Unhold', words: (call) => ['unhold', call] },
  { feature: 'SETUPTRANSFER', text: 'Consult', words: (call) => ['setuptransfer', call] },
  { feature: 'REMOVEFROMCONF', text: 'Remove', words: (call) => ['removefromconf', call] },
  { feature: 'DROP', text: 'Drop', words: (call) => ['drop', call] },
];
const FIELDS = [
  { feature: 'DIAL', name: 'Digits', value: '4750', text: 'Dial', words: (call, value) => ['dial', call, value] },
  { feature: 'BLINDTRANSFER', name: 'To', value: '4761', text: 'Transfer', words: (call, value) => ['blindtransfer', call, value] },
  { feature: 'GENERATEDIGITS', name: 'Digits', value: '12#', text: 'Send', words: (call, value) => ['digits', call, value] },
];
const CONFERENCE = 30;  // the conference's own call
const CONNECTED = ['CONNECTED', 'PROCEEDING', 'RINGBACK', 'DIALING'];
const HELD = ['ONHOLD', 'ONHOLDPENDTRANSFER', 'ONHOLDPENDCONF'];

export class Application {
  constructor(host, ask) {
    this.ask = ask;
    this.values = new Map();  // what was typed into the cards, which are made anew
    this.line = element('span', { class: 'pill' });
    this.phone = element('span', { class: 'pill' });
    this.lineButton = button('', { onclick: () => ask([this.lineOpen ? 'close' : 'open']) });
    this.phoneButton = button('', { onclick: () => ask([this.phoneOpen ? 'phoneclose' : 'phoneopen']) });
    this.phoneLines = element('pre', { class: 'phone-display', hidden: true, 'aria-label': "The phone's display" });
    this.phoneKeys = this.buildPhone();
    this.cards = element('div', { class: 'cards' });
    this.none = element('p', { class: 'faint' }, 'No calls.');
    this.forwarded = element('p', { class: 'faint' });
    host.append(
      element('div', { class: 'device' }, element('b', {}, 'Line'), this.line, this.lineButton),
      element('div', { class: 'device' }, element('b', {}, 'Phone'), this.phone, this.phoneButton),
      this.phoneLines, this.phoneKeys, this.buildMake(), this.cards, this.none, this.buildRest());
  }

  // What an application presses on the phone itself.
  buildPhone() {
    const kind = choice([['feature', 'line key'], ['display', 'soft key'], ['keypad', 'digit']]);
    const which = element('input', { value: '1', autocomplete: 'off' });
    return element('form', { class: 'row phone', hidden: true, onsubmit: (event) => {
      event.preventDefault();
      this.ask(['button', kind.value, which.value.trim()]);
    } }, labelled('Press', kind), labelled('Number', which, { class: 'field short' }),
    element('button', { type: 'submit' }, 'Press'),
    button('Off hook', { 'data-hook': 'offhook', onclick: () => this.ask(['hookswitch', 'offhook']) }),
    button('On hook', { 'data-hook': 'onhook', onclick: () => this.ask(['hookswitch', 'onhook']) }));
  }

  buildMake() {
    this.destination = element('input', { value: '4750', inputmode: 'tel', autocomplete: 'off' });
    this.make = element('button', { type: 'submit', class: 'main' }, 'Make call');
    return element('form', { class: 'row make', onsubmit: (event) => {
      event.preventDefault();
      this.ask(['makecall', this.destination.value.trim()]);
    } }, labelled('Number', this.destination), this.make);
  }

  buildRest() {
    this.address = element('input', { value: '4780', inputmode: 'tel', autocomplete: 'off' });
    this.pickup = element('button', { type: 'submit' }, 'Pick up');
    this.mode = choice(FORWARDS);
    this.forwardTo = element('input', { value: '4799', inputmode: 'tel', autocomplete: 'off' });
    this.forward = element('button', { type: 'submit' }, 'Forward');
    this.cancel = button('Cancel', { onclick: () => this.ask(['forward', 'cancel']) });
    return element('details', { class: 'group' }, element('summary', {}, element('h3', {}, 'Pick up, forward')),
      element('form', { class: 'row pickup', onsubmit: (event) => {
        event.preventDefault();
        this.ask(['pickup', this.address.value.trim()]);
      } }, labelled('Address', this.address), this.pickup),
      element('form', { class: 'row forward', onsubmit: (event) => {
        event.preventDefault();
        this.ask(['forward', this.mode.value, this.forwardTo.value.trim()]);
      } }, labelled('Forward', this.mode), labelled('To', this.forwardTo, { class: 'field short' }), this.forward, this.cancel),
      this.forwarded);
  }

  show(state) {
    this.state = state;
    this.lineOpen = state.line !== 'closed';
    this.phoneOpen = state.phoneOpen;
    setText(this.line, state.line);
    setAttribute(this.line, 'data-state', state.line === 'in service' ? 'on' : this.lineOpen ? 'wait' : 'off');
    setText(this.lineButton, this.lineOpen ? 'Close line' : 'Open line');
    setText(this.phone, state.phoneOpen ? 'open' : 'closed');
    setAttribute(this.phone, 'data-state', state.phoneOpen ? 'on' : 'off');
    setText(this.phoneButton, state.phoneOpen ? 'Close phone' : 'Open phone');
    // Opening the second device starts the provider's calls anew: one at a time is what applications want.
    this.lineButton.disabled = (state.phoneOpen && !this.lineOpen);
    this.phoneButton.disabled = (this.lineOpen && !state.phoneOpen);
    setAttribute(this.phoneButton, 'title', this.phoneButton.disabled ? 'close the line first' : null);
    this.phoneLines.hidden = !state.phoneOpen || state.phoneDisplay.length === 0;
    setText(this.phoneLines, state.phoneDisplay.join('\n'));
    this.phoneKeys.hidden = !state.phoneOpen;
    this.make.disabled = !this.may('MAKECALL');
    this.pickup.disabled = !this.may('PICKUP');
    this.forward.disabled = this.cancel.disabled = !this.may('FORWARD');
    setText(this.forwarded, state.forwards.length > 0 ? 'Forwarded: ' + state.forwards.join('; ') : 'Not forwarded.');
    this.showCards();
  }

  may(feature) {
    return this.state.line === 'in service' && this.state.addressFeatures.includes(feature);
  }

  showCards() {
    const text = JSON.stringify(this.state.calls);
    if (text === this.cardsText) return;
    this.cardsText = text;
    // The cards are made anew; who stood in one goes on there.
    const focused = document.activeElement?.dataset?.act;
    const kept = new Map(Array.from(this.cards.children, (card) => [card.dataset.call, card]));
    this.cards.replaceChildren(...this.state.calls.map((call) => this.card(call, kept.get(String(call.call)))));
    if (focused) this.cards.querySelector(`[data-act="${CSS.escape(focused)}"]`)?.focus();
    this.none.hidden = this.state.calls.length > 0;
  }

  card(call, kept) {
    const asText = JSON.stringify(call);
    if (kept?.dataset.as === asText && !call.features.includes('COMPLETETRANSF')) return kept;
    const name = call.call === CONFERENCE ? 'Conference' : 'Call ' + call.call;
    const state = [call.state, call.mode].filter(Boolean).join(' ');  // TAPI's own words
    const facts = [call.origin.toLowerCase(), call.reason.toLowerCase()].filter((text) => text && text !== '0' && text !== 'unavail' && text !== 'unknown').join(', ');
    return element('article', { class: 'card', 'data-call': call.call, 'data-state': call.state, 'data-as': asText, 'aria-label': name + ', ' + state },
      element('header', {}, element('b', {}, name), element('span', { class: 'pill' }, state), element('small', {}, facts)),
      this.parties(call), this.acts(call), this.fields(call));
  }

  parties(call) {
    const rows = PARTIES.filter(([field]) => call[field].number !== '' || call[field].name !== '').flatMap(([field, title]) =>
      [element('dt', {}, title), element('dd', {}, [call[field].name, call[field].number].filter(Boolean).join('  '))]);
    return element('dl', {}, ...rows);
  }

  acts(call) {
    const may = (feature) => call.features.includes(feature);
    const number = String(call.call);
    const act = (text, words, main) => button(text, { class: main ? 'main' : null, 'data-act': number + text, onclick: () => this.ask(words) });
    const acts = ACTS.filter(({ feature }) => may(feature)).map(({ text, words, main }) => act(text, words(number), main));
    if (may('COMPLETETRANSF')) {
      const other = this.partner(call);
      if (other !== undefined) {
        const held = HELD.includes(call.state);
        const pair = held ? [number, String(other.call)] : [String(other.call), number];
        acts.push(act('Complete transfer', ['completetransfer', ...pair]));
        acts.push(act('Conference', ['completetransfer', ...pair, 'conference']));
      }
    }
    return element('div', { class: 'row' }, ...acts);
  }

  // The call that this one can be joined with. The buttons stand on the consultation call alone: once is enough.
  partner(call) {
    if (HELD.includes(call.state) || !CONNECTED.includes(call.state)) return undefined;
    return this.state.calls.findLast((other) => other.call !== call.call && HELD.includes(other.state));
  }

  fields(call) {
    return element('div', { class: 'card-fields' }, ...FIELDS.filter(({ feature }) => call.features.includes(feature)).map((one) => {
      const key = call.call + one.text;
      const field = element('input', { value: this.values.get(key) ?? one.value, autocomplete: 'off', 'data-act': key + ' field',
        'aria-label': one.name + ' for ' + one.text.toLowerCase(), oninput: () => this.values.set(key, field.value) });
      return element('form', { class: 'row', onsubmit: (event) => {
        event.preventDefault();
        this.ask(one.words(String(call.call), field.value.trim()));
      } }, field, element('button', { type: 'submit', 'data-act': key }, one.text));
    }));
  }
}
