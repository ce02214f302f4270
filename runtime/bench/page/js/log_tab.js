// SPDX-License-Identifier: MIT
// The tab Log: the program's lines as they come; levels and words choose what is shown.
import { appendLines, byId, element, notify, setText } from "./dom.js";
import { count, dateAndTime } from "./format.js";

const kLevels = ["trace", "debug", "info", "warning", "error", "critical"];
const kSettable = [...kLevels.slice(0, 5), "off"];
const kMostLines = 5000;

export class LogTab {
  #connection;
  #list = byId("log").querySelector(".lines");
  #lines = []; // { time, rank, level, text }
  #dropped = 0;
  #isFirst = true;

  constructor(connection) {
    this.#connection = connection;
    connection.addEventListener("open", () => (this.#isFirst = true));
    connection.addEventListener("hello", ({ detail }) => this.#greet(detail));
    connection.addEventListener("log", ({ detail }) => this.#take(detail));
    byId("log-search").addEventListener("input", () => this.#showAll());
    byId("log-least").addEventListener("change", () => this.#showAll());
    byId("log-level").append(...kSettable.map((level) => element("option", {}, level)));
    byId("log-level").addEventListener("change", (event) => this.#setLevel(event.target));
  }

  opened() {
    this.#list.scrollTop = this.#list.scrollHeight;
  }

  #greet(hello) {
    byId("log-level-label").hidden = hello.write !== true;
    const select = byId("log-level");
    select.value = hello.level;
    select.dataset.now = hello.level;
  }

  async #setLevel(select) {
    try {
      await this.#connection.request({ type: "log-level", level: select.value });
      select.dataset.now = select.value;
      byId("log-least").value = String(Math.min(Number(byId("log-least").value), kSettable.indexOf(select.value)));
      this.#showAll();
    } catch (error) {
      select.value = select.dataset.now;
      notify(error.message);
    }
  }

  #take(message) {
    const lines = message.lines.map((line) => ({ ...line, rank: rankOf(line.level) }));
    if (this.#isFirst) {
      this.#dropped = 0; // what is older than the first lines has not come too fast
      this.#lines = lines.slice(-kMostLines);
      this.#isFirst = false;
      this.#showAll();
      return;
    }
    this.#dropped += message.dropped ?? 0;
    this.#lines.push(...lines);
    if (this.#lines.length > kMostLines) this.#lines.splice(0, this.#lines.length - kMostLines);
    appendLines(this.#list, lines.filter(this.#choice()).map(newLine), kMostLines);
    this.#count();
  }

  #choice() {
    const least = Number(byId("log-least").value);
    const words = byId("log-search").value.toLowerCase().split(/\s+/).filter(Boolean);
    return ({ rank, text }) => rank >= least && words.every((word) => text.toLowerCase().includes(word));
  }

  #showAll() {
    this.#list.replaceChildren(...this.#lines.filter(this.#choice()).map(newLine));
    this.#list.scrollTop = this.#list.scrollHeight;
    this.#count();
  }

  #count() {
    const dropped = this.#dropped > 0 ? `; ${count(this.#dropped)} came too fast and are not shown` : "";
    const all = `${count(this.#lines.length)} lines`;
    const shown = this.#list.childElementCount;
    setText(byId("log-count"), (shown === this.#lines.length ? all : `${count(shown)} of ${all}`) + dropped);
  }
}

function rankOf(level) {
  const rank = kLevels.indexOf(level === "warn" ? "warning" : level);
  return rank < 0 ? 2 : rank;
}

function newLine({ time, level, text }) {
  return element("p", { "data-level": level }, element("time", {}, dateAndTime(time, true)), element("b", {}, level), element("bdi", {}, text));
}
