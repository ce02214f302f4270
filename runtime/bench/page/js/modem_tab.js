// SPDX-License-Identifier: MIT
// The tab Modem: for each port its state, and the dialogue as it happens. The program has hidden what is secret.
import { appendLines, byId, element, setText } from "./dom.js";
import { dateAndTime } from "./format.js";

const kMostLines = 1000;
const kFacts = [["state", "State"], ["operator", "Operator"], ["registration", "Network"], ["signal", "Signal"]];

export class ModemTab {
  #ports = new Map();
  #panel = byId("modem");

  constructor(connection) {
    connection.addEventListener("open", () => this.#clear());
    connection.addEventListener("modem", ({ detail }) => this.#take(detail));
  }

  opened() {
    for (const { lines } of this.#ports.values()) lines.scrollTop = lines.scrollHeight;
  }

  #take(message) {
    const port = this.#ports.get(message.port) ?? this.#newPort(message.port);
    setText(port.status, message.status ?? "");
    for (const [field] of kFacts) if (field in message) showFact(port.facts.get(field), field, message[field]);
    appendLines(port.lines, (message.lines ?? []).map(newLine), kMostLines);
  }

  /** The program may have restarted, with other modems. */
  #clear() {
    for (const { card } of this.#ports.values()) card.remove();
    this.#ports.clear();
    this.#panel.querySelector(".empty").hidden = false;
  }

  #newPort(name) {
    this.#panel.querySelector(".empty").hidden = true;
    const facts = new Map(kFacts.map(([field]) => [field, element("dd", {}, "–")]));
    const lines = element("ol", { class: "lines", tabIndex: 0, "aria-label": `Dialogue with the modem of port ${name}` });
    const tiles = kFacts.map(([field, title]) => element("div", {}, element("dt", {}, title), facts.get(field)));
    const status = element("p", { class: "note" });
    const card = element("article", { class: "port" }, element("h2", {}, `Modem port ${name}`),
      status, element("dl", { class: "tiles" }, ...tiles), lines);
    this.#panel.append(card);
    const port = { card, status, facts, lines };
    this.#ports.set(name, port);
    return port;
  }
}

function showFact(place, field, value) {
  const isKnown = value !== null && value !== undefined && value !== "";
  if (field !== "signal" || !isKnown) return setText(place, isKnown ? String(value) : "unknown");
  const strength = strengthOf(value);
  const bars = [1, 2, 3, 4].map((bar) => element("i", { class: bar <= strength.bars ? "on" : "" }));
  const text = `${value} dBm, ${strength.word}`;
  if (place.textContent !== text) place.replaceChildren(element("span", { class: "bars", "aria-hidden": "true" }, ...bars), text);
}

/** What a signal in dBm is good for, in GSM. */
function strengthOf(signal) {
  if (signal >= -75) return { bars: 4, word: "excellent" };
  if (signal >= -85) return { bars: 3, word: "good" };
  if (signal >= -95) return { bars: 2, word: "fair" };
  return { bars: 1, word: "weak" };
}

function newLine({ time, sent, text }) {
  return element("li", { class: sent ? "sent" : "received" },
    element("time", {}, dateAndTime(time, true)), element("span", { class: "way" },
      element("span", { "aria-hidden": "true" }, sent ? "→" : "←"), element("span", { class: "unseen" }, sent ? "sent" : "received")),
    element("bdi", {}, text));
}
