// SPDX-License-Identifier: MIT
// The tab Messages: the rows of the store, and what may be done with them.
import { byId, element, notify, setAttribute, setText } from "./dom.js";
import { count, dateAndTime } from "./format.js";

const kOpen = ["waiting", "sending", "offered"];
const kShown = {
  all: () => true,
  open: (row) => kOpen.includes(row.state),
  out: (row) => row.kind !== "in",
  in: (row) => row.kind === "in",
  bad: (row) => ["failed", "expired"].includes(row.state),
};
const kCancelled = ["waiting"];
const kRetried = ["waiting", "failed", "expired", "cancelled"];
const kKinds = { sms: "SMS", mail: "Mail", in: "From" };

export class MessagesTab {
  #connection;
  #table = byId("messages").querySelector(".table");
  #body = this.#table.querySelector(".body");
  #rows = new Map(); // key: { shown, json, row }
  #total = 0;
  #error = "";
  #mayWrite = false;

  constructor(connection) {
    this.#connection = connection;
    connection.addEventListener("hello", ({ detail }) => {
      this.#mayWrite = detail.write === true;
      for (const { row, shown } of this.#rows.values()) this.#fill(shown, row);
    });
    connection.addEventListener("messages", ({ detail }) => this.#take(detail));
    byId("message-kind").addEventListener("change", () => this.#filter());
    setInterval(() => {
      for (const { shown, row } of this.#rows.values()) if (row.next) this.#showNext(shown.querySelector(".next"), row);
    }, 1000);
  }

  opened() {}

  #take(message) {
    const gone = new Set(this.#rows.keys());
    this.#total = message.total ?? message.rows.length;
    this.#error = message.error ?? "";
    // The newest first: what has just happened is what people look for.
    const ordered = [...message.rows].sort((one, other) => other.id - one.id);
    ordered.forEach((row, at) => {
      const key = `${row.kind === "in"} ${row.id}`;
      gone.delete(key);
      this.#place(this.#update(key, row), at);
    });
    for (const key of gone) {
      this.#rows.get(key).shown.remove();
      this.#rows.delete(key);
    }
    this.#filter();
  }

  #update(key, row) {
    const json = JSON.stringify(row);
    const known = this.#rows.get(key);
    if (known?.json === json) return known.shown;
    const shown = known?.shown ?? newRow();
    this.#rows.set(key, { shown, json, row });
    this.#fill(shown, row);
    return shown;
  }

  #place(shown, at) {
    const there = this.#body.children[at];
    if (there !== shown) this.#body.insertBefore(shown, there ?? null);
  }

  #fill(shown, row) {
    const [id, state, to, text, attempts, next, reason, actions] = shown.children;
    setText(id.firstChild, String(row.id));
    setText(id.lastChild, row.time ? dateAndTime(row.time) : "");
    setText(state.firstChild, row.state);
    setAttribute(state.firstChild, "data-state", row.state);
    setText(to, `${kKinds[row.kind] ?? row.kind} ${row.to ?? ""}`);
    setText(text, row.text ?? "");
    setText(attempts, row.kind === "in" ? "" : String(row.attempts ?? ""));
    setAttribute(attempts, "data-unit", row.attempts === 1 ? "attempt" : "attempts");
    this.#showNext(next, row);
    setText(reason, row.reason ?? "");
    const buttons = this.#buttons(row);
    const labels = (all) => [...all].map((button) => button.textContent).join();
    if (labels(buttons) !== labels(actions.children)) actions.replaceChildren(...buttons); // or the focus would be lost
  }

  /** A try that is due waits for the modem, the server, or its turn. */
  #showNext(place, { next }) {
    setText(place, !next ? "" : next > this.#connection.now() ? dateAndTime(next) : "due");
  }

  #buttons(row) {
    if (!this.#mayWrite || row.kind === "in") return [];
    const button = (text, does) => element("button", { "aria-label": `${text} message ${row.id}`, onclick: does }, text);
    return [
      ...(kRetried.includes(row.state) ? [button("Retry", () => this.#request("retry", row))] : []),
      ...(kCancelled.includes(row.state) ? [button("Cancel", () => this.#confirm(row))] : []),
    ];
  }

  #confirm(row) {
    const dialog = byId("confirm");
    setText(byId("confirm-text"), `Cancel message ${row.id} to ${row.to}? Its block reports it as failed.`);
    dialog.returnValue = "no";
    dialog.onclose = () => dialog.returnValue === "yes" && this.#request("cancel", row);
    dialog.showModal();
  }

  async #request(type, row) {
    try {
      await this.#connection.request({ type, message: row.id });
    } catch (error) {
      notify(`Message ${row.id}: ${error.message}`);
    }
  }

  #filter() {
    const isShown = kShown[byId("message-kind").value];
    let shownRows = 0;
    for (const { shown, row } of this.#rows.values()) {
      shown.hidden = !isShown(row);
      if (!shown.hidden) shownRows++;
    }
    this.#table.hidden = shownRows === 0;
    const empty = byId("messages").querySelector(".empty");
    empty.hidden = shownRows > 0;
    setText(empty, this.#error || (this.#rows.size === 0 ? "The store has no messages." : "No such messages."));
    const all = `${count(this.#total)} ${this.#total === 1 ? "message" : "messages"}`;
    setText(byId("message-count"), shownRows === this.#total ? all : `${count(shownRows)} of ${all}`);
  }
}

function newRow() {
  const cell = (name, ...children) => element("span", { role: "cell", class: name }, ...children);
  return element("div", { role: "row" }, cell("id", element("b"), " ", element("time")), cell("state", element("b")), cell("to"),
    element("span", { role: "cell", class: "text", dir: "auto" }), cell("attempts"), cell("next"), cell("reason"), cell("actions"));
}
