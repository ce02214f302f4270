// SPDX-License-Identifier: MIT
// The program's variables as the messages of the topic "variables" describe them: a tree of nodes.
// Nodes are known by path across restarts of the program, since their ids are not.

/**
 * A node: { id, parent, name, kind, type, direction, secret, writable } as in the protocol, and
 *   path      names from the root, separated by "."
 *   level     1 for a root
 *   children  nodes
 *   value     number, true, false, text, null, or { text, length } for the beginning of a long text
 *   changed   when the value changed, in Unix seconds; null: not since the page first saw it
 */
export class Variables {
  roots = [];
  /** Counts up whenever a node comes or goes. */
  structure = 0;
  #nodes = new Map();
  #paths = new Map();

  get size() {
    return this.#nodes.size;
  }

  byPath(path) {
    return this.#paths.get(path);
  }

  /**
   * Takes over a message of the program.
   * @param known  what was known before the connection was lost, or null: times of changes are kept
   * @param seen   is called with each node that has got a value
   */
  apply(message, known, seen) {
    for (const id of message.remove ?? []) this.#remove(this.#nodes.get(id));
    for (const node of message.add ?? []) this.#add(node);
    for (const [id, value] of message.set ?? []) {
      const node = this.#nodes.get(id);
      if (!node) continue;
      setValue(node, fromWire(value), message.time, known);
      seen(node);
    }
  }

  /** The same tree, which stays as it is. */
  copy() {
    const copied = new Variables();
    const add = (node, parent) => {
      const twin = { ...node, parent, children: [] };
      (parent?.children ?? copied.roots).push(twin);
      copied.#nodes.set(twin.id, twin);
      copied.#paths.set(twin.path, twin);
      for (const child of node.children) add(child, twin);
    };
    for (const root of this.roots) add(root, null);
    return copied;
  }

  #add(described) {
    this.#remove(this.#nodes.get(described.id));
    const parent = this.#nodes.get(described.parent) ?? null;
    const node = { ...described, parent, children: [], value: null, seen: false, changed: null };
    node.level = parent ? parent.level + 1 : 1;
    node.path = this.#freePath(parent ? `${parent.path}.${node.name}` : node.name);
    insert(parent?.children ?? this.roots, node, parent?.kind !== "block");
    this.#nodes.set(node.id, node);
    this.#paths.set(node.path, node);
    this.structure++;
  }

  /** A table may have the keys 1 and "1". */
  #freePath(path) {
    let free = path;
    for (let another = 2; this.#paths.has(free); another++) free = `${path}~${another}`;
    return free;
  }

  #remove(node) {
    if (!node) return;
    for (const child of [...node.children]) this.#remove(child);
    const siblings = node.parent?.children ?? this.roots;
    siblings.splice(siblings.indexOf(node), 1);
    this.#nodes.delete(node.id);
    this.#paths.delete(node.path);
    this.structure++;
  }
}

const byName = new Intl.Collator("en", { numeric: true });

/** Lua's tables have no order, so theirs is by name; that of a block is how it declares its variables. */
function insert(siblings, node, isByName) {
  let low = isByName ? 0 : siblings.length;
  let high = siblings.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (byName.compare(siblings[middle].name, node.name) <= 0) low = middle + 1;
    else high = middle;
  }
  siblings.splice(low, 0, node);
}

function setValue(node, value, time, known) {
  const before = node.seen ? node : known?.byPath(node.path);
  if (before?.seen) node.changed = same(before.value, value) ? before.changed : time;
  node.value = value;
  node.seen = true;
}

function fromWire(value) {
  const special = value?.special;
  return special ? { nan: NaN, inf: Infinity, "-inf": -Infinity }[special] ?? null : value;
}

/** A long text is the same as its beginning: one is what came by itself, the other what was asked for. */
function same(one, other) {
  const [a, b] = [beginning(one), beginning(other)];
  return a === null || b === null ? Object.is(one, other) : a.length === b.length && isPrefix(a.text, b.text);
}

const octets = new TextEncoder();

/** A text as { text, length in octets }; null: not a text. */
function beginning(value) {
  if (typeof value === "string") return { text: value, length: octets.encode(value).length };
  return value !== null && typeof value === "object" ? value : null;
}

const isPrefix = (one, other) => one.startsWith(other) || other.startsWith(one);
