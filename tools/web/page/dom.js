// Elements without markup: texts are always texts.

function filled(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith('on')) node.addEventListener(name.slice(2), value);
    else if (value === true) node.setAttribute(name, '');
    else if (value !== false && value !== undefined && value !== null) node.setAttribute(name, value);
  }
  node.append(...children.filter((child) => child !== null && child !== undefined));
  return node;
}

export function element(name, attributes = {}, ...children) {
  return filled(document.createElement(name), attributes, children);
}

export function shape(name, attributes = {}, ...children) {
  return filled(document.createElementNS('http://www.w3.org/2000/svg', name), attributes, children);
}

export function button(text, attributes, ...children) {
  return element('button', { type: 'button', ...attributes }, text, ...children);
}

// A field with its label: {box, field}.
export function labelled(text, field, attributes = {}) {
  return element('label', { class: 'field', ...attributes }, element('span', {}, text), field);
}

export function choice(options, attributes = {}) {
  return element('select', attributes, ...options.map(([value, text]) => element('option', { value }, text)));
}

// Only what differs is written: a screen reader would say it again, and a selection would be lost.
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

export function setAttribute(node, name, value) {
  if (value === null || value === undefined || value === false) node.removeAttribute(name);
  else if (node.getAttribute(name) !== String(value)) node.setAttribute(name, value);
}
