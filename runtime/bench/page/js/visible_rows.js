// SPDX-License-Identifier: MIT
// Which nodes of the tree have a row: those whose ancestors are open, or what the filter lets through.

/** A row: { node, opens, open, position, siblings }. */

const kAll = () => true;

/**
 * @param opened  set of paths of the nodes that the reader has opened
 * @param filter  words; each must occur in a node's path or type, and one of them in its own name or type
 */
export function visibleRows(roots, opened, filter) {
  const words = filter.toLowerCase().split(/\s+/).filter(Boolean);
  const shown = words.length === 0 ? null : matching(roots, words);
  const rows = [];
  addRows(rows, roots, shown ? (node) => shown.has(node) : kAll, opened, shown);
  return rows;
}

function addRows(rows, nodes, isShown, opened, shown) {
  const siblings = nodes.filter(isShown);
  siblings.forEach((node, at) => {
    const opens = node.children.length > 0;
    // What lies below a match is there to be opened; what leads to a match is open.
    const leads = shown !== null && node.children.some((child) => shown.has(child));
    const open = opens && (leads || opened.has(node.path));
    rows.push({ node, opens, open, position: at + 1, siblings: siblings.length });
    if (open) addRows(rows, node.children, leads ? isShown : kAll, opened, leads ? shown : null);
  });
}

/** The nodes that match, and all their ancestors. */
function matching(nodes, words) {
  const found = new Set();
  const look = (node, above) => {
    const own = `${node.name} ${node.type ?? ""}`.toLowerCase();
    const path = `${above}${node.name}`.toLowerCase();
    const isOwn = words.some((word) => own.includes(word) || (path.includes(word) && !above.includes(word)));
    let shows = isOwn && words.every((word) => path.includes(word) || own.includes(word));
    for (const child of node.children) shows = look(child, `${path}.`) || shows;
    if (shows) found.add(node);
    return shows;
  };
  for (const node of nodes) look(node, "");
  return found;
}
