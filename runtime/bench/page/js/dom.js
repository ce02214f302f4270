// SPDX-License-Identifier: MIT
// Helpers for the document. Text from outside only ever becomes text, never markup.

/** The element with this id. */
export const byId = (id) => document.getElementById(id);

/** A new element. `properties` are set on it; "class" and names with a dash become attributes. */
export function element(tag, properties = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name in made && !name.includes("-")) made[name] = value;
    else made.setAttribute(name, value);
  }
  made.append(...children);
  return made;
}

/** Sets the text only when it differs: a change costs layout, and a selection is lost. */
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

/** Sets an attribute only when it differs; null removes it. */
export function setAttribute(node, name, value) {
  if (value === null) node.removeAttribute(name);
  else if (node.getAttribute(name) !== String(value)) node.setAttribute(name, value);
}

/** A function that calls `draw` once, before the next frame, however often it is called. */
export function beforeNextFrame(draw) {
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

/** Appends to a scrolling list and drops its oldest lines; follows the end if the reader is there. */
export function appendLines(list, lines, most) {
  const follows = list.scrollHeight - list.scrollTop - list.clientHeight < 40;
  list.append(...lines);
  while (list.childElementCount > most) list.firstElementChild.remove();
  if (follows) list.scrollTop = list.scrollHeight;
}

/** Shows what went wrong with something that the user asked for, until it has been read. */
export function notify(text) {
  const notice = byId("notice");
  notice.textContent = text;
  notice.hidden = false;
  clearTimeout(notify.timer);
  notify.timer = setTimeout(() => (notice.hidden = true), 10000);
}

/** The value of a colour of the style sheet. */
export const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
