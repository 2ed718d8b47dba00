// A trace on a page. The data stands in the page as it was made by the trace reader (html.cpp):
//   lines [text, ms, time of day in ms or -1, levels], steps [line, from, to, words, crefs, keys],
//   troubles [line, last line, count, what, advice], calls {cref, over, parties, states [line, state]},
//   changes of the set [line, what, number, value, text, kind].
import { button, choice, element, labelled, setAttribute, setText, shape } from './dom.js';
import { SetPicture } from './set.js';

const data = JSON.parse(document.getElementById('data').textContent);
const at = (id) => document.getElementById(id);
const LANES = ['Application', 'Provider', 'Card and PBX', 'Set'];
const LEVELS = [[1, 'entry'], [2, 'link'], [4, 'input'], [8, 'display'], [16, 'call'], [32, 'omna'], [64, 'config']];
const ROW = 34;              // px, as in the style sheet
const LONGEST_GAP = 4000;    // ms: longer ones are drawn so long
const AROUND = 14;           // plain lines shown before and behind the chosen one
const REST_MS = 300;         // without another choice, until the address tells the chosen one

const pad = (value, digits) => String(value).padStart(digits, '0');
function timeOf(line) {
  const [, ms, day] = data.lines[line];
  if (day < 0) return '+' + (ms / 1000).toFixed(3) + ' s';
  return pad(Math.floor(day / 3600000), 2) + ':' + pad(Math.floor(day / 60000) % 60, 2) + ':' +
         pad(Math.floor(day / 1000) % 60, 2) + '.' + pad(day % 1000, 3);
}
function spanOf(ms) {
  return ms < 1000 ? ms + ' ms' : ms < 60000 ? (ms / 1000).toFixed(ms < 10000 ? 2 : 1) + ' s'
       : ms < 3600000 ? (ms / 60000).toFixed(1) + ' min' : (ms / 3600000).toFixed(1) + ' h';
}

// --- the head: what went wrong

function showHead() {
  document.title = data.title;
  setText(at('title'), data.title);
  const last = data.lines.length - 1;
  setText(at('when'), last < 0 ? 'The trace is empty.' :
    timeOf(0) + ' to ' + timeOf(last) + ', ' + data.lines.length + ' lines, ' + data.calls.length + ' calls' +
    data.starts.map((start) => '; started ' + start).join(''));
  setText(at('wrong-title'), data.troubles.length === 0 ? 'Nothing went wrong' : 'What went wrong, or may have');
  at('wrong').classList.toggle('well', data.troubles.length === 0);
  const lacking = data.missing.map((what) => 'Not in this trace: ' + what + '. Set Debug_Mode\\DebugOutput to 127 to have all.');
  if (data.cutDumps > 0) lacking.push(data.cutDumps + ' frames are cut in the trace, which has room for 49 bytes of each.');
  setText(at('missing'), lacking.join(' '));
  at('troubles').replaceChildren(...data.troubles.map(([line, until, count, what, advice]) =>
    element('li', {}, button('', { onclick: () => choose(line, true) }, element('time', {}, timeOf(line)),
      element('span', {}, what + (count > 1 ? ', ' + count + ' times until ' + timeOf(until) : '')),
      advice === '' ? null : element('small', {}, 'look at: ' + advice)))));
}

// --- the chosen moment, a line of the trace

let chosen = 0, scrolls = false, resting;
const followers = [];  // only the first and the last one measure: before and behind all changes, so one layout will do
const follow = onceAFrame(() => {
  for (const one of followers) one(scrolls);
  scrolls = false;
});
function choose(line, scroll) {
  chosen = Math.max(0, Math.min(data.lines.length - 1, line));
  scrolls ||= scroll;
  follow();
  clearTimeout(resting);  // browsers refuse an address that changes with every move of a hand
  resting = setTimeout(() => history.replaceState(null, '', linkToChosen()), REST_MS);
}
function linkToChosen() {
  return location.href.replace(/#.*/, '') + '#L' + (chosen + 1);
}

// However often it is called meanwhile.
function onceAFrame(draw) {
  let waits = false;
  return () => {
    if (waits) return;
    waits = true;
    requestAnimationFrame(() => {
      waits = false;
      draw();
    });
  };
}

// --- the set

function showPicture() {
  const picture = new SetPicture(at('set'));
  followers.push(() => {
    const blank = ' '.repeat(40);
    const state = { number: '', display: [blank, blank], softKeys: [], keys: [], modules: [], lamps: Array(20).fill(0),
                    ringing: false, handsetOff: false, calls: [] };
    const keys = new Map(), modules = new Map();
    const keyOf = (key) => keys.get(key) ?? keys.set(key, { key, icon: 0 }).get(key);
    for (const [line, what, number, value, text, kind] of data.changes) {
      if (line > chosen) break;
      if (what === 0 || what === 1) state.display[what] = text;
      else if (what === 2) keyOf(number).icon = value;
      else if (what === 3 && number < state.lamps.length) state.lamps[number] = value;
      else if (what === 4) Object.assign(keyOf(number), { label: text, kind });
      else if (what === 5) modules.set(number, { address: number, offset: value });
      else if (what === 6) state.number = text;
    }
    state.keys = [...keys.values()];
    state.modules = [...modules.values()];
    state.softKeys = [0, 1, 2, 3, 4].map((i) => state.display[1].slice(8 * i, 8 * i + 8).trim());
    picture.show(state);
  });
}

// --- the calls along time. Where nothing happens for long, time is drawn shorter.

function showTimeline() {
  const drawn = [];  // of each line, where it stands
  data.lines.forEach(([, ms], i) =>
    drawn.push(i === 0 ? 0 : drawn[i - 1] + Math.min(ms - data.lines[i - 1][1], LONGEST_GAP)));
  const whole = Math.max(1, drawn[drawn.length - 1] ?? 1);
  const WIDE = 1000, BAR = 14, STEP = 30, TOP = 18;
  const x = (line) => drawn[line] / whole * WIDE;
  const rows = [];  // the line until which each row is taken
  const bars = data.calls.map((call) => {
    const first = call.states[0][0], last = call.over ? call.states[call.states.length - 1][0] : data.lines.length - 1;
    let row = rows.findIndex((until) => until < first);
    if (row < 0) row = rows.push(0) - 1;
    rows[row] = last + Math.floor(data.lines.length / 40);
    const y = TOP + row * STEP;
    const pieces = call.states.map(([line, state], i) => {
      const to = x(call.states[i + 1]?.[0] ?? last), name = state.split(' ')[0];
      const piece = shape('rect', { x: x(line), y, height: BAR, rx: 2, width: Math.max(1.5, to - x(line)),
        class: 'state-' + (/^[A-Z]+$/.test(name) ? name : 'other') });
      piece.append(shape('title', {}, 'call ' + call.cref + ' ' + state + ', ' + timeOf(line) +
                                      call.parties.map((party) => '\n' + party).join('')));
      return piece;
    });
    return shape('g', { class: 'call' }, ...pieces,
                 shape('text', { x: Math.min(x(first), WIDE - 60), y: y - 2 }, call.cref === 30 ? 'conference' : 'call ' + call.cref));
  });
  const height = TOP + Math.max(1, rows.length) * STEP + 22;
  const hand = shape('line', { class: 'hand', y1: 0, y2: height - 14 });
  const marks = data.troubles.map(([line]) => shape('circle', { class: 'wrong', cx: x(line), cy: height - 18, r: 3 }));
  const labels = [0, 0.25, 0.5, 0.75, 1].map((part) => {
    const line = nearest(part * whole);
    return shape('text', { x: part * WIDE, y: height - 2, 'text-anchor': part === 0 ? 'start' : part === 1 ? 'end' : 'middle' },
                 timeOf(line));
  });
  const svg = shape('svg', { viewBox: '0 0 ' + WIDE + ' ' + height, role: 'img',
                             'aria-label': data.calls.length + ' calls along time' },
                    shape('line', { class: 'axis', x1: 0, x2: WIDE, y1: height - 14, y2: height - 14 }), ...bars, ...marks,
                    ...labels, hand);
  if (data.lines.length > 0) at('timeline').append(svg);

  function nearest(place) {
    let low = 0, high = drawn.length - 1;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (drawn[middle] < place) low = middle + 1;
      else high = middle;
    }
    return Math.max(0, low);
  }
  let wide = 0, hidden = 0, dragging = false;
  new ResizeObserver(() => {
    wide = at('timeline').clientWidth;
    hidden = at('timeline').scrollWidth - wide;
    follow();
  }).observe(at('timeline'));
  const drag = (event) => {
    const box = svg.getBoundingClientRect();
    choose(nearest((event.clientX - box.left) / box.width * whole), true);
  };
  svg.addEventListener('pointerdown', (event) => {
    dragging = true;
    svg.setPointerCapture(event.pointerId);
    drag(event);
  });
  svg.addEventListener('lostpointercapture', () => { dragging = false; });
  svg.addEventListener('pointermove', (event) => {
    if (event.buttons !== 0) drag(event);
  });
  const slide = at('moment');
  slide.max = data.lines.length - 1;
  slide.addEventListener('input', () => choose(Number(slide.value), true));
  followers.push(() => {
    slide.value = chosen;
    hand.setAttribute('x1', x(chosen));
    hand.setAttribute('x2', x(chosen));
    // Where the picture is wider than its place, the hand stays in sight, but does not run from under a finger.
    if (hidden > 0 && !dragging) at('timeline').scrollLeft = x(chosen) / WIDE * (wide + hidden) - wide / 2;
    const live = data.calls.map((call) => {
      const past = call.states.filter(([line]) => line <= chosen);
      const [, state] = past[past.length - 1] ?? [0, 'IDLE'];
      return past.length === 0 || (call.over && past.length === call.states.length) ? null : 'call ' + call.cref + ' ' + state +
        (call.parties.length > 0 ? ' (' + call.parties[call.parties.length - 1] + ')' : '');
    }).filter((text) => text !== null);
    setText(at('now'), timeOf(chosen) + ': ' + (live.join('; ') || 'no call'));
  });
}

// --- the chart: only the rows in sight are in the document, and those that stay in sight stay as they are

function showChart() {
  const search = element('input', { placeholder: 'words, bytes', 'aria-label': 'Search' });
  const numbers = (place) => [...new Set(data.steps.flatMap((step) => step[place]))].sort((a, b) => a - b);
  const call = choice([['', 'all'], ...numbers(4).map((n) => [n, n === 30 ? 'conference' : n])]);
  const key = choice([['', 'all'], ...numbers(5).map((n) => [n, n])]);
  const levels = LEVELS.map(([bit, name]) => [bit, element('input', { type: 'checkbox', checked: true }), name]);
  at('filters').append(labelled('Search', search), labelled('Call', call), labelled('Key', key),
    element('div', { class: 'levels', role: 'group', 'aria-label': 'Trace levels' },
      ...levels.map(([, box, name]) => element('label', { class: 'level' }, box, name))));
  at('lanes').replaceChildren(...LANES.map((lane) => element('span', {}, lane)));
  const rows = at('rows'), all = element('div', { class: 'all' });
  rows.append(all);
  const wrong = new Set(data.troubles.map(([line]) => line));
  const built = new Map();  // by their places in `shown`
  let shown = [];

  const filter = () => {
    const text = search.value.toLowerCase();
    const mask = levels.reduce((sum, [bit, box]) => sum | (box.checked ? bit : 0), 0x80);
    shown = data.steps.filter(([line, , , words, crefs, keys]) => {
      const [plain, , , known] = data.lines[line];
      return (known === 0 || (known & mask) !== 0) && (call.value === '' || crefs.includes(Number(call.value))) &&
             (key.value === '' || keys.includes(Number(key.value))) &&
             (text === '' || words.toLowerCase().includes(text) || plain.toLowerCase().includes(text));
    });
    all.style.height = shown.length * ROW + 'px';
    all.replaceChildren();
    built.clear();
    draw();
  };
  const build = (step, i) => {
    const [line, from, to, words] = step;
    const before = i > 0 ? data.lines[line][1] - data.lines[shown[i - 1][0]][1] : 0;
    const left = Math.min(from, to), right = Math.max(from, to);
    return element('div', { class: 'step' + (wrong.has(line) ? ' wrong' : ''), role: 'option', style: 'top:' + i * ROW + 'px',
                            'data-line': line },
      element('span', { class: 'when' }, timeOf(line), element('span', { class: 'gap' }, before > 0 ? '+' + spanOf(before) : '')),
      element('div', { class: 'way' },
        element('div', { class: 'arrow ' + (from < to ? 'right' : 'left'),
                         style: 'left:' + (12.5 + 25 * left) + '%;width:' + 25 * (right - left) + '%' }),
        element('div', { class: 'words' + (to === 0 ? ' event' : ''), title: LANES[from] + ' to ' + LANES[to] + ': ' + words,
                         style: left < 2 ? 'left:calc(' + (12.5 + 25 * left) + '% + 6px)'
                                         : 'left:0;right:calc(12.5% + 8px);text-align:right' }, words)));
  };
  const draw = () => {
    const first = Math.max(0, Math.floor(rows.scrollTop / ROW) - 6);
    const last = Math.min(shown.length, first + Math.ceil(rows.clientHeight / ROW) + 14);
    for (const [i, row] of built) {
      if (i >= first && i < last) continue;
      row.remove();
      built.delete(i);
    }
    for (let i = last - 1; i >= first; --i) {
      if (!built.has(i)) built.set(i, all.insertBefore(build(shown[i], i), built.get(i + 1) ?? null));
      setAttribute(built.get(i), 'aria-selected', shown[i][0] === chosen ? 'true' : 'false');
    }
  };
  rows.addEventListener('scroll', onceAFrame(draw));
  rows.addEventListener('click', (event) => {
    const step = event.target.closest('.step');
    if (step) choose(Number(step.dataset.line), false);
  });
  rows.addEventListener('keydown', (event) => {
    const move = { ArrowDown: 1, ArrowUp: -1, PageDown: 20, PageUp: -20 }[event.key];
    if (move === undefined || shown.length === 0) return;
    event.preventDefault();
    const here = shown.findIndex(([line]) => line >= chosen);
    choose(shown[Math.max(0, Math.min(shown.length - 1, (here < 0 ? shown.length : here) + move))][0], true);
  });
  for (const field of [search, call, key, ...levels.map(([, box]) => box)]) field.addEventListener('input', filter);
  followers.push((scroll) => {
    if (scroll) {
      let row = shown.findIndex(([line]) => line >= chosen);
      if (row < 0) row = shown.length - 1;
      rows.scrollTop = Math.max(0, row * ROW - rows.clientHeight / 3);
    }
    draw();
  });
  filter();
}

// --- the plain lines around the chosen one

function showPlain() {
  const link = button('Copy a link to this line', { onclick: () => {
    const text = linkToChosen();
    navigator.clipboard?.writeText(text).then(() => setText(link, 'Copied'), () => prompt('The link', text)) ?? prompt('The link', text);
  } });
  at('plain').append(element('p', { class: 'copy' }, link));
  followers.push(() => {
    setText(link, 'Copy a link to line ' + (chosen + 1));
    const first = Math.max(0, chosen - AROUND), last = Math.min(data.lines.length, chosen + AROUND + 1);
    const items = [];
    for (let line = first; line < last; ++line)
      items.push(element('li', { class: line === chosen ? 'here' : '', onclick: () => choose(line, true) }, data.lines[line][0]));
    at('lines').replaceChildren(...items);
    const here = items[chosen - first];
    if (here) at('lines').scrollTop = here.offsetTop - at('lines').offsetTop - at('lines').clientHeight / 2;
  });
}

showHead();
showChart();
showPicture();
showTimeline();
showPlain();
const asked = /^#L(\d+)$/.exec(location.hash);
if (data.lines.length > 0) choose(asked ? Number(asked[1]) - 1 : data.troubles[0]?.[0] ?? 0, true);
