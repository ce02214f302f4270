// SPDX-License-Identifier: MIT
// The tab Variables: tree, filter, pause, detail and trend.
import { DetailView } from "./detail_view.js";
import { beforeNextFrame, byId, notify, setText } from "./dom.js";
import { count, timeOfDay } from "./format.js";
import { Histories } from "./history.js";
import { isOpen } from "./tabs.js";
import { TreeView } from "./tree_view.js";
import { kMostPlotted, TrendView } from "./trend_view.js";
import { Variables } from "./variables.js";
import { visibleRows } from "./visible_rows.js";

const kOpenedAtFirst = 150; // a program with so few variables is shown whole

export class VariablesTab {
  #connection;
  #histories = new Histories();
  #latest = new Variables();
  #shown = this.#latest; // a copy that stays as it is, while the reader has paused
  #pausedAt = null;
  #isFirst = true; // the next message describes everything
  #opened = new Set(); // paths
  #isUntouched = true; // the reader has opened and closed nothing yet
  #rowsOf = null; // what the rows were made from
  #mayWrite = false;
  #program = null;
  #tree;
  #detail;
  #trend;
  #drawSoon = beforeNextFrame(() => this.#draw());

  constructor(connection) {
    this.#connection = connection;
    const actions = {
      canPlot: (node) => node.kind === "value" && !node.secret && this.#histories.has(node.path),
      isPlotted: (node) => this.#histories.plotted.has(node.path),
      plot: (node) => this.#togglePlot(node),
      now: () => this.#now(),
      mayWrite: () => this.#mayWrite,
      request: (node, message) => this.#request(node, message),
      open: (node, opens) => this.#open(node, opens),
      select: (node) => this.#detail.show(node),
      enter: (node) => {
        this.#detail.show(node);
        this.#detail.focus();
      },
      close: () => {
        this.#detail.show(null);
        byId("tree").focus();
      },
      isBool: (path) => typeof this.#latest.byPath(path)?.value === "boolean",
      removed: () => this.#drawSoon(),
    };
    this.#tree = new TreeView(byId("tree"), actions);
    this.#detail = new DetailView(actions);
    this.#trend = new TrendView(this.#histories, actions);
    this.#listen();
  }

  opened() {
    this.#drawSoon();
  }

  #listen() {
    const connection = this.#connection;
    connection.addEventListener("open", () => (this.#isFirst = true));
    connection.addEventListener("lost", () => this.#histories.interrupt(connection.now()));
    connection.addEventListener("hello", ({ detail }) => this.#greet(detail));
    connection.addEventListener("variables", ({ detail }) => this.#take(detail));
    byId("filter").addEventListener("input", this.#drawSoon);
    byId("pause").addEventListener("click", () => this.#togglePause());
    byId("fold").addEventListener("click", () => this.#fold());
    setInterval(() => {
      this.#histories.forget(connection.now());
      this.#drawSoon();
    }, 1000);
  }

  #greet(hello) {
    this.#mayWrite = hello.write === true;
    if (this.#program !== null && this.#program !== hello.program) this.#histories.clear();
    this.#program = hello.program;
    this.#drawSoon();
  }

  #take(message) {
    const known = this.#isFirst ? this.#latest : null;
    if (known) {
      this.#latest = new Variables();
      this.#isFirst = false;
    }
    this.#latest.apply(message, known, (node) => this.#histories.record(node.path, message.time, node.value));
    if (this.#pausedAt === null) this.#shown = this.#latest;
    this.#openAtFirst();
    this.#drawSoon();
  }

  #now() {
    return this.#pausedAt ?? this.#connection.now();
  }

  #togglePause() {
    this.#pausedAt = this.#pausedAt === null ? this.#connection.now() : null;
    this.#shown = this.#pausedAt === null ? this.#latest : this.#latest.copy();
    byId("pause").setAttribute("aria-pressed", this.#pausedAt !== null);
    this.#drawSoon();
  }

  #togglePlot(node) {
    if (!this.#trend.toggle(node.path)) notify(`At most ${kMostPlotted} variables are in one trend; remove another first.`);
    this.#drawSoon();
  }

  /** The variables of a large program come in several messages. */
  #openAtFirst() {
    if (!this.#isUntouched) return;
    this.#isUntouched = this.#latest.size <= kOpenedAtFirst;
    if (this.#isUntouched) this.#openAll();
    else this.#opened.clear();
  }

  #open(node, opens) {
    this.#isUntouched = false;
    if (opens) this.#opened.add(node.path);
    else this.#opened.delete(node.path);
    this.#rowsOf = null;
    this.#drawSoon();
  }

  #openAll() {
    const open = (node) => {
      if (node.children.length > 0) this.#opened.add(node.path);
      node.children.forEach(open);
    };
    this.#shown.roots.forEach(open);
  }

  #fold() {
    this.#isUntouched = false;
    if (this.#opened.size > 0) this.#opened.clear();
    else this.#openAll();
    this.#rowsOf = null;
    this.#drawSoon();
  }

  /** Ids are those of this connection, whatever is shown. */
  #request(node, message) {
    const id = this.#isFirst ? undefined : this.#latest.byPath(node.path)?.id;
    if (id === undefined) return Promise.reject(new Error("The program has no such variable now."));
    return this.#connection.request({ ...message, id });
  }

  #draw() {
    if (!isOpen("variables")) return;
    const filter = byId("filter").value;
    const from = [this.#shown, this.#shown.structure, filter, this.#opened.size];
    if (this.#rowsOf?.every((one, at) => one === from[at])) {
      this.#tree.draw();
    } else {
      this.#rowsOf = from;
      this.#showRows(visibleRows(this.#shown.roots, this.#opened, filter), filter);
    }
    if (this.#detail.path !== undefined) this.#detail.show(this.#shown.byPath(this.#detail.path) ?? null);
    this.#trend.draw();
    setText(byId("fold"), this.#opened.size > 0 ? "Close all" : "Open all");
  }

  #showRows(rows, filter) {
    this.#tree.show(rows);
    const empty = byId("tree").querySelector(".empty");
    empty.hidden = rows.length > 0;
    setText(empty, filter ? "Nothing matches the filter." : "No variables yet.");
    const total = `${count(this.#shown.size)} variables`;
    const paused = this.#pausedAt === null ? "" : `, paused at ${timeOfDay(this.#pausedAt)}`;
    setText(byId("variable-count"), (filter ? `${count(rows.length)} rows of ${total}` : total) + paused);
  }
}
