// SPDX-License-Identifier: MIT
// All about the selected variable: the whole value, when it changed, its trend, and a form to write it.
import { byId, element, notify, setAttribute, setText } from "./dom.js";
import { ago, count, dateAndTime, shortValue } from "./format.js";

const kDirections = { input: "input", output: "output" };

/** @param actions { plot(node), canPlot(node), isPlotted(node), mayWrite(), now(), request(node, message), close() } */
export class DetailView {
  #panel = byId("detail");
  #actions;
  #node = null;
  #parts = null;

  constructor(actions) {
    this.#actions = actions;
    this.#panel.addEventListener("keydown", (event) => event.key === "Escape" && this.#actions.close());
  }

  show(node) {
    const isOther = node?.path !== this.#node?.path || node?.writable !== this.#node?.writable;
    this.#node = node;
    this.#panel.hidden = !node;
    if (!node) return;
    if (isOther || this.#parts.mayWrite !== this.#actions.mayWrite()) this.#build(node);
    this.draw();
  }

  get path() {
    return this.#node?.path;
  }

  focus() {
    const first = [...this.#panel.querySelectorAll("input, select, textarea, button:not(.close)")].find((one) => one.offsetParent);
    (first ?? this.#panel.querySelector(".whole")).focus();
  }

  draw() {
    const node = this.#node;
    if (!node || this.#panel.hidden) return;
    const { value, changed, more, plot } = this.#parts;
    setText(value, this.#text(node));
    setAttribute(value, "data-type", node.secret ? "secret" : typeof node.value);
    more.hidden = typeof node.value?.length !== "number" || typeof node.value === "string";
    if (!more.hidden) setText(more, `Show all ${count(node.value.length)} octets`);
    setText(changed, node.changed === null ? "not since this page looks" :
      `${dateAndTime(node.changed)}, ${ago(this.#actions.now() - node.changed)}`);
    plot.hidden = !this.#actions.canPlot(node);
    setAttribute(plot, "aria-pressed", this.#actions.isPlotted(node));
  }

  #text(node) {
    if (node.kind !== "value") return `${node.children.length} variables`;
    if (node.secret) return "hidden: passwords, PINs and tokens never leave the program";
    if (typeof node.value === "string") return node.value;
    return node.value?.text !== undefined ? `${node.value.text}…` : typeof node.value === "number" ? String(node.value) : shortValue(node);
  }

  #build(node) {
    const close = element("button", { class: "close", "aria-label": "Close", onclick: () => this.#actions.close() }, "×");
    const value = element("pre", { class: "whole", tabIndex: 0, dir: "auto", role: "region", "aria-label": "Value" });
    const more = element("button", { onclick: () => this.#ask({ type: "get" }) });
    const changed = element("dd");
    const plot = element("button", { onclick: () => this.#actions.plot(this.#node) }, "Trend");
    this.#parts = { value, more, changed, plot, mayWrite: this.#actions.mayWrite() };
    const kind = [node.kind === "value" ? node.type : node.kind === "block" ? `block ${node.type}` : "table",
      kDirections[node.direction]].filter(Boolean).join(", ");
    this.#panel.replaceChildren(
      element("h2", {}, element("bdi", {}, node.path)), close, value, element("p", { class: "actions" }, more, plot),
      element("dl", {}, element("dt", {}, "Type"), element("dd", {}, kind || "unknown"),
        ...(node.kind === "value" ? [element("dt", {}, "Last change"), changed] : [])),
      ...this.#writing(node));
  }

  #writing(node) {
    if (node.kind !== "value" || node.secret) return [];
    if (!this.#actions.mayWrite()) {
      return [element("p", { class: "note" }, "Read only: the program was started without ", element("code", {}, "--web-write"), ".")];
    }
    if (!node.writable) return [element("p", { class: "note" }, node.direction === "output" ? "An output: its block sets it." : "This variable cannot be written.")];
    const input = newInput(node);
    const result = element("p", { class: "note", role: "status" });
    const write = (event) => {
      event.preventDefault();
      this.#write(input, result);
    };
    return [element("form", { class: "write", onsubmit: write },
      element("label", {}, "New value ", input), element("button", { class: "primary" }, "Write"), result)];
  }

  async #write(input, result) {
    try {
      const value = readInput(input);
      result.className = "note";
      result.textContent = "Writing…";
      await this.#actions.request(this.#node, { type: "write", value });
      result.textContent = "Written.";
    } catch (error) {
      result.className = "error";
      result.textContent = error.message;
    }
  }

  async #ask(message) {
    try {
      await this.#actions.request(this.#node, message);
    } catch (error) {
      notify(error.message);
    }
  }
}

function isBool(node) {
  return typeof node.value === "boolean" || node.type === "BOOL";
}

function isText(node) {
  if (node.value === null) return !/INT|REAL|WORD|BYTE|NUM/i.test(node.type ?? "");
  return typeof node.value !== "number";
}

function newInput(node) {
  if (isBool(node)) {
    const options = ["TRUE", "FALSE"].map((text) => element("option", { value: text }, text));
    const select = element("select", { "data-type": "boolean" }, ...options);
    select.value = node.value ? "FALSE" : "TRUE"; // the other one is what somebody wants
    return select;
  }
  if (isText(node)) return element("textarea", { "data-type": "string", rows: 2, value: typeof node.value === "string" ? node.value : "" });
  return element("input", { "data-type": "number", inputMode: "decimal", autocomplete: "off", value: String(node.value ?? 0) });
}

/** @throws Error when it is not of its type */
function readInput(input) {
  if (input.dataset.type === "boolean") return input.value === "TRUE";
  if (input.dataset.type === "string") return input.value;
  const text = input.value.trim().replace(",", ".");
  const value = Number(text);
  if (text === "" || !Number.isFinite(value)) throw new Error(`'${input.value}' is not a number.`);
  return value;
}
