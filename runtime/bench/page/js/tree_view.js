// SPDX-License-Identifier: MIT
// The tree of variables as a treegrid of the ARIA Authoring Practices Guide. Only the rows that can be seen are in the
// document, so that ten thousand variables scroll as well as ten. The focus stays on the grid, which names the
// active row.
import { element, setAttribute, setText } from "./dom.js";
import { ago, shortValue } from "./format.js";

const kBeyond = 6; // rows drawn above and below what can be seen

/**
 * @param actions { open(node, isOpen), select(node), enter(node), plot(node), canPlot(node), isPlotted(node), now() }
 */
export class TreeView {
  #grid;
  #body;
  #actions;
  #rows = [];
  #drawn = []; // elements, used again for other rows
  #active = null; // path
  #rowHeight = 30;

  constructor(grid, actions) {
    this.#grid = grid;
    this.#body = grid.querySelector(".rows");
    this.#actions = actions;
    grid.addEventListener("scroll", () => this.draw(), { passive: true });
    grid.addEventListener("keydown", (event) => this.#key(event));
    this.#body.addEventListener("click", (event) => this.#click(event));
    new ResizeObserver(() => this.draw()).observe(grid);
  }

  get active() {
    return this.#active;
  }

  show(rows) {
    this.#rows = rows;
    setAttribute(this.#grid, "aria-rowcount", rows.length + 1);
    this.draw();
  }

  /** Brings the rows that can be seen up to date. */
  draw() {
    this.#rowHeight = parseFloat(getComputedStyle(this.#grid).getPropertyValue("--row")) || 30;
    this.#body.style.height = `${this.#rows.length * this.#rowHeight}px`;
    const first = Math.max(0, Math.floor(this.#grid.scrollTop / this.#rowHeight) - kBeyond);
    const fit = Math.ceil(this.#grid.clientHeight / this.#rowHeight) + 2 * kBeyond;
    const end = Math.min(this.#rows.length, first + fit);
    while (this.#drawn.length < end - first) this.#drawn.push(this.#body.appendChild(newRow()));
    while (this.#drawn.length > Math.max(0, end - first)) this.#drawn.pop().remove();
    const now = this.#actions.now();
    let active = null;
    for (let at = first; at < end; at++) {
      // A row keeps its element while it scrolls, so that a click meets the row that was pressed.
      const row = this.#drawn[at % this.#drawn.length];
      this.#drawRow(row, at, now);
      if (this.#rows[at].node.path === this.#active) active = row.id;
    }
    setAttribute(this.#grid, "aria-activedescendant", active);
  }

  #drawRow(row, at, now) {
    const { node, opens, open, position, siblings } = this.#rows[at];
    const top = `translateY(${at * this.#rowHeight}px)`;
    if (row.style.transform !== top) row.style.transform = top;
    row.path = node.path;
    setAttribute(row, "id", `row-${at}`);
    setAttribute(row, "aria-rowindex", at + 2);
    setAttribute(row, "aria-level", node.level);
    setAttribute(row, "aria-posinset", position);
    setAttribute(row, "aria-setsize", siblings);
    setAttribute(row, "aria-expanded", opens ? open : null);
    setAttribute(row, "aria-selected", node.path === this.#active);
    setAttribute(row, "data-kind", node.kind);
    row.style.setProperty("--level", node.level);
    const [name, value, type, changed, plot] = row.cells;
    setText(name.lastChild, node.name);
    setAttribute(name.lastChild, "title", node.path);
    setText(value, node.kind === "value" ? shortValue(node) : "");
    setAttribute(value, "data-type", node.secret ? "secret" : typeof node.value);
    setText(type, node.kind === "table" ? "table" : node.type ?? "");
    setText(changed, node.changed === null ? "" : ago(now - node.changed));
    row.classList.toggle("fresh", node.changed !== null && now - node.changed < 1);
    const button = plot.firstChild;
    button.hidden = !this.#actions.canPlot(node);
    setAttribute(button, "aria-pressed", this.#actions.isPlotted(node));
    setAttribute(button, "aria-label", `Trend of ${node.path}`);
  }

  #click(event) {
    const row = event.target.closest("[role=row]");
    const at = this.#rows.findIndex(({ node }) => node.path === row?.path);
    if (at < 0) return;
    const { node, opens, open } = this.#rows[at];
    this.#activate(at);
    if (event.target.closest("button")) return this.#actions.plot(node);
    if (opens) this.#actions.open(node, !open);
    this.#actions.select(node);
  }

  #key(event) {
    const at = this.#rows.findIndex(({ node }) => node.path === this.#active);
    const page = Math.max(1, Math.floor(this.#grid.clientHeight / this.#rowHeight) - 2);
    const steps = { ArrowDown: at + 1, ArrowUp: at - 1, Home: 0, End: Infinity, PageDown: at + page, PageUp: at - page };
    if (event.ctrlKey || event.altKey || event.metaKey || event.target !== this.#grid || this.#rows.length === 0) return;
    if (event.key in steps) this.#activate(steps[event.key], true);
    else if (at < 0 || !this.#keyOnRow(event.key, at)) return;
    event.preventDefault();
  }

  #keyOnRow(key, at) {
    const { node, opens, open } = this.#rows[at];
    if (key === "ArrowRight" && opens && !open) this.#actions.open(node, true);
    else if (key === "ArrowRight" && open) this.#activate(at + 1, true);
    else if (key === "ArrowLeft" && open) this.#actions.open(node, false);
    else if (key === "ArrowLeft") this.#activate(this.#rows.findIndex((row) => row.node === node.parent), true, at);
    else if (key === " " && this.#actions.canPlot(node)) this.#actions.plot(node);
    else if (key === "Enter") this.#actions.enter(node);
    else return false;
    return true;
  }

  #activate(at, scroll = false, otherwise = 0) {
    const chosen = Math.min(Math.max(at < 0 ? otherwise : at, 0), this.#rows.length - 1);
    this.#active = this.#rows[chosen].node.path;
    if (scroll) {
      const head = this.#grid.querySelector(".head").offsetHeight;
      const top = chosen * this.#rowHeight;
      const bottom = top + this.#rowHeight + head - this.#grid.clientHeight;
      if (this.#grid.scrollTop > top) this.#grid.scrollTop = top;
      else if (this.#grid.scrollTop < bottom) this.#grid.scrollTop = bottom;
      this.#actions.select(this.#rows[chosen].node);
    }
    this.draw();
  }
}

function newRow() {
  const cell = (name, ...children) => element("span", { role: "gridcell", class: name }, ...children);
  const cells = [
    cell("name", element("i", { "aria-hidden": "true" }), element("bdi")),
    cell("value", ""),
    cell("type wide"),
    cell("changed wide"),
    cell("plot-cell", element("button", { class: "plot-button", tabIndex: -1 })),
  ];
  return Object.assign(element("div", { role: "row" }, ...cells), { cells });
}
