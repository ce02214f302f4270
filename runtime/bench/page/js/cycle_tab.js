// SPDX-License-Identifier: MIT
// The tab Cycle: how long the cycles take, over ten minutes and as a histogram, and which were too long.
import { beforeNextFrame, byId, colour, element, setAttribute, setText } from "./dom.js";
import { count, duration, timeOfDay } from "./format.js";
import { kTrendSeconds } from "./history.js";
import { axis, legendItem, newPlot, redrawWithTheme, timeAxis } from "./plot.js";
import { isOpen } from "./tabs.js";

const kLines = [["longest", "--series-1"], ["mean", "--series-2"], ["latest start", "--series-3"], ["overruns", "--bad"]];

export class CycleTab {
  #connection;
  #panel = byId("cycle");
  #plot = null;
  #legend;
  #tiles = new Map();
  #bars = [];
  #last = []; // [time, mean, longest, latest start, overruns], ascending
  #cycle = null; // the last message
  #isFirst = true;
  #drawSoon = beforeNextFrame(() => this.#draw());

  constructor(connection) {
    this.#connection = connection;
    connection.addEventListener("open", () => (this.#isFirst = true));
    connection.addEventListener("cycle", ({ detail }) => this.#take(detail));
    this.#legend = kLines.map(([name, colourName]) => legendItem(name, colourName));
    this.#panel.querySelector(".legend").append(...this.#legend.map(({ item }) => item));
    redrawWithTheme(() => this.#plot);
  }

  opened() {
    this.#drawSoon();
  }

  #take(message) {
    if (this.#isFirst) this.#last = [];
    this.#isFirst = false;
    const known = this.#last.at(-1)?.[0] ?? -Infinity;
    this.#last.push(...(message.last ?? []).filter(([time]) => time > known));
    const oldest = (this.#last.at(-1)?.[0] ?? 0) - kTrendSeconds;
    const tooOld = this.#last.findIndex(([time]) => time >= oldest);
    if (tooOld > 0) this.#last.splice(0, tooOld);
    this.#cycle = { ...this.#cycle, ...message };
    this.#drawSoon();
  }

  #draw() {
    if (!isOpen("cycle") || !this.#cycle) return;
    this.#drawTiles();
    this.#drawPlot();
    this.#drawHistogram(this.#cycle.histogram ?? []);
  }

  #drawTiles() {
    const { cycle, count: cycles, overruns } = this.#cycle;
    const now = this.#last.at(-1);
    const bad = this.#last.findLast((one) => one[4] > 0);
    this.#tile("Cycle", duration(cycle));
    this.#tile("Cycles", count(cycles));
    this.#tile("Mean now", now ? duration(now[1]) : "–");
    this.#tile("Longest in ten minutes", now ? duration(Math.max(...this.#last.map((one) => one[2]))) : "–");
    this.#tile("Latest start in ten minutes", now ? duration(Math.max(...this.#last.map((one) => one[3]))) : "–");
    this.#tile("Overruns", count(overruns) + (bad ? `, last at ${timeOfDay(bad[0])}` : ""), overruns > 0);
  }

  #tile(name, text, isBad = false) {
    if (!this.#tiles.has(name)) {
      const value = element("dd");
      this.#panel.querySelector(".tiles").append(element("div", {}, element("dt", {}, name), value));
      this.#tiles.set(name, value);
    }
    const value = this.#tiles.get(name);
    setText(value, text);
    value.classList.toggle("bad", isBad);
  }

  #drawPlot() {
    const place = this.#panel.querySelector(".plot");
    const data = this.#data();
    if (!this.#plot) this.#plot = newPlot(place, { ...this.#options(), data }, () => this.#showValues());
    else this.#plot.setData(data);
    this.#showValues();
    const values = this.#legend.map(({ value }, at) => `${kLines[at][0]} ${value.textContent}`).join(", ");
    setAttribute(place, "aria-label", `Length of the cycles in the last ten minutes. Now: ${values}`);
  }

  #data() {
    const column = (at) => this.#last.map((one) => one[at]);
    // A cycle overruns since it takes long, or since it starts late.
    const overruns = this.#last.map((one) => (one[4] > 0 ? Math.max(one[2], one[3]) : null));
    const limit = this.#last.map(() => this.#cycle.cycle);
    return [column(0), column(2), column(1), column(3), overruns, limit];
  }

  #options() {
    const line = (name) => ({ stroke: () => colour(name), width: 1.5, points: { show: false } });
    const marks = { show: true, size: 8, fill: () => colour("--bad") };
    const series = [
      {}, line("--series-1"), line("--series-2"), line("--series-3"),
      { stroke: () => colour("--bad"), paths: () => null, points: marks },
      // The cycle itself: what is longer is an overrun. It does not stretch the scale.
      { stroke: () => colour("--bad"), width: 1, dash: [6, 4], auto: false, points: { show: false } },
    ];
    const x = { time: false, range: (_, low, high) => [Math.min(low, high - 10), high] };
    const y = { range: (_, low, high) => [0, (high || 1e-3) * 1.1] };
    return { series, scales: { x, y }, axes: [timeAxis(), axis({ size: 64, values: (_, ticks) => ticks.map(duration) })] };
  }

  #showValues() {
    const index = this.#plot?.cursor.idx ?? this.#last.length - 1;
    const at = this.#last[index];
    const texts = at ? [duration(at[2]), duration(at[1]), duration(at[3]), String(at[4])] : ["–", "–", "–", "–"];
    this.#legend.forEach(({ value }, one) => setText(value, texts[one]));
  }

  /** Bars of buckets that are not empty, and those between them. */
  #drawHistogram(histogram) {
    const counts = histogram.map(([, times]) => times);
    const first = counts.findIndex((times) => times > 0);
    const shown = first < 0 ? [] : histogram.slice(first, counts.findLastIndex((times) => times > 0) + 1);
    const total = counts.reduce((sum, times) => sum + times, 0);
    const most = Math.max(1, ...counts);
    const body = this.#panel.querySelector("tbody");
    while (this.#bars.length < shown.length) this.#bars.push(newBar(body));
    while (this.#bars.length > shown.length) this.#bars.pop().row.remove();
    shown.forEach(([bound, times], at) => {
      const { row, head, cells, bar } = this.#bars[at];
      setText(head, bound === null ? "longer" : duration(bound));
      setText(cells[0].firstChild, count(times));
      setText(cells[1], `${Number(((100 * times) / total).toPrecision(3))} %`);
      bar.style.width = `${times === 0 ? 0 : 4 + (96 * Math.log1p(times)) / Math.log1p(most)}%`;
      const below = at > 0 ? shown[at - 1][0] : 0;
      row.classList.toggle("over", times > 0 && below >= this.#cycle.cycle);
    });
  }
}

function newBar(body) {
  const head = element("th", { scope: "row" });
  const bar = element("i", { class: "bar-of", "aria-hidden": "true" });
  const cells = [element("td", {}, element("span"), bar), element("td")];
  const row = element("tr", {}, head, ...cells);
  body.append(row);
  return { row, head, cells, bar };
}
