// What goes over the wire, in words, and what TAPI is told: lines as they come, the newest at the end.

import { button, element, setAttribute } from './dom.js';

const KEPT = 600;  // lines of a lane
const SIGNS = { in: '→ PC', out: '← PC', card: 'card', event: 'event', answer: 'answer', asked: 'asked', box: 'box' };
const SIGN_NAMES = { in: 'to the PC', out: 'from the PC' };
// Frames of which every message is one of these say only that the link is alive.
const LINK_ALONE = /^(ACK|poll( answered)?)$/;

function clock(at) {
  const time = new Date(at);
  return time.toTimeString().slice(0, 8) + '.' + String(time.getMilliseconds()).padStart(3, '0');
}

// Columns for a wide console are for no lane, and a box has lines.
function shown(text, kind) {
  return kind === 'box' ? text.replaceAll(' / ', '\n') : text.replace(/(\S) {3,}/g, '$1  ');
}

export class Lane {
  // `options`: {bytes: true} for lines that have bytes behind their words.
  constructor(host, name, title, hint, options = {}) {
    this.list = element('ol', { class: 'lines', role: 'log', tabindex: '0', 'aria-label': title,
                                'aria-live': options.bytes ? 'off' : 'polite' });
    this.last = 0;
    const tools = [button('Clear', { class: 'quiet', onclick: () => this.clear() })];
    if (options.bytes) {
      tools.unshift(this.toggle('Acknowledgements', 'data-acks'), this.toggle('Bytes', 'data-bytes'));
    }
    this.node = element('section', { class: 'panel lane', 'data-lane': name, 'aria-label': title },
      element('header', {}, element('h2', {}, title), element('small', { class: 'faint' }, hint),
              element('div', { class: 'tools' }, ...tools)), this.list);
    host.append(this.node);
    // The end stays in sight, unless somebody has gone back to read; a lane of another size scrolls by itself too.
    this.follow = true;
    let byHand = false;
    for (const touched of ['wheel', 'touchmove', 'pointerdown', 'keydown'])
      this.list.addEventListener(touched, () => { byHand = true; }, { passive: true });
    this.list.addEventListener('scroll', () => {
      if (!byHand) return;
      this.follow = this.list.scrollHeight - this.list.scrollTop - this.list.clientHeight < 24;
      byHand = !this.follow;
    });
    new ResizeObserver(() => this.follow && this.toEnd()).observe(this.list);
  }

  toggle(text, attribute) {
    const box = button(text, { class: 'quiet', 'aria-pressed': 'false', onclick: () => {
      const on = box.getAttribute('aria-pressed') !== 'true';
      setAttribute(box, 'aria-pressed', on);
      setAttribute(this.list, attribute, on ? 'yes' : null);
      this.toEnd();
    } });
    return box;
  }

  clear() {
    this.list.replaceChildren();
  }

  restart() {
    this.clear();
    this.last = 0;
  }

  toEnd() {
    this.list.scrollTop = this.list.scrollHeight;
  }

  add(lines) {
    const fresh = lines.filter((line) => line.number > this.last);
    if (fresh.length === 0) return;
    this.last = fresh[fresh.length - 1].number;
    const follow = this.follow;
    this.list.append(...fresh.map((line) => this.row(line)));
    while (this.list.childElementCount > KEPT) this.list.firstElementChild.remove();
    if (follow) this.toEnd();
  }

  row(line) {
    const alone = (line.kind === 'in' || line.kind === 'out') && line.texts.every((text) => LINK_ALONE.test(text));
    return element('li', { 'data-kind': line.kind, 'data-alone': alone ? 'yes' : null, 'data-at': line.at },
      element('time', {}, clock(line.at)),
      element('span', { class: 'sign', 'aria-label': SIGN_NAMES[line.kind] }, SIGNS[line.kind] ?? line.kind),
      element('div', {}, ...line.texts.map((text) => element('p', {}, shown(text, line.kind))),
              line.detail ? element('code', {}, line.detail) : null));
  }
}
