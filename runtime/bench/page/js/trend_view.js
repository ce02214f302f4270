// SPDX-License-Identifier: MIT
// The trend of several variables in one plot: numbers share a scale (or have one each), BOOLs have a lane each at the
// bottom.
import { beforeNextFrame, byId, colour, element, setAttribute, setText } from "./dom.js";
import { number } from "./format.js";
import { axis, legendItem, newPlot, redrawWithTheme, stepped, timeAxis } from "./plot.js";

/** So many variables in one plot; there are as many colours. */
export const kMostPlotted = 8;
const kShortestSpan = 20; // seconds
const kLane = 0.12; // part of the height for a BOOL

/** @param actions { now(), isBool(path), removed() } */
export class TrendView {
  #histories;
  #actions;
  #section = byId("trend");
  #place = this.#section.querySelector(".plot");
  #legend = this.#section.querySelector(".legend");
  #plot = null;
  #lines = []; // { path, isBool, colour, value }
  #drawSoon = beforeNextFrame(() => this.#draw());

  constructor(histories, actions) {
    this.#histories = histories;
    this.#actions = actions;
    byId("trend-span").addEventListener("change", this.#drawSoon);
    byId("trend-scales").addEventListener("change", () => this.#build());
    byId("trend-clear").addEventListener("click", () => {
      for (const { path } of this.#lines) this.toggle(path);
      actions.removed();
    });
    redrawWithTheme(() => this.#plot);
  }

  /** Adds the variable, or removes it. @return false: there is no room for another */
  toggle(path) {
    const { plotted } = this.#histories;
    if (!plotted.delete(path)) {
      if (plotted.size >= kMostPlotted) return false;
      plotted.add(path);
    }
    this.#build();
    return true;
  }

  /** Draws again, if anybody can see it. */
  draw() {
    if (this.#plot) this.#drawSoon();
  }

  #build() {
    const kept = new Map(this.#lines.map((line) => [line.path, line.colour]));
    const free = Array.from({ length: kMostPlotted }, (_, at) => `--series-${at + 1}`);
    const unused = free.filter((name) => ![...this.#histories.plotted].some((path) => kept.get(path) === name));
    this.#lines = [...this.#histories.plotted].map((path) =>
      ({ path, isBool: this.#actions.isBool(path), colour: kept.get(path) ?? unused.shift() }));
    this.#section.hidden = this.#lines.length === 0;
    this.#plot?.destroy();
    this.#plot = null;
    this.#buildLegend();
    if (this.#lines.length === 0) return;
    this.#plot = newPlot(this.#place, this.#options(), (index) => this.#showValues(index));
    this.#draw();
  }

  #buildLegend() {
    for (const line of this.#lines) {
      const remove = () => {
        this.toggle(line.path);
        this.#actions.removed();
      };
      const button = element("button", { "aria-label": `Remove ${line.path} from the trend`, onclick: remove }, "×");
      Object.assign(line, legendItem(line.path, line.colour, button));
    }
    this.#legend.replaceChildren(...this.#lines.map((line) => line.item));
  }

  #options() {
    const ownScales = byId("trend-scales").checked;
    const bools = this.#lines.filter((line) => line.isBool);
    const lanes = Math.min(0.6, kLane * bools.length) / (bools.length || 1);
    const under = bools.length === this.#lines.length ? 0 : lanes * bools.length;
    const scales = { x: { time: false } };
    const series = this.#lines.map((line) => {
      const lane = bools.indexOf(line);
      const scale = line.isBool ? `lane${lane}` : ownScales ? `own${line.path}` : "y";
      scales[scale] = { range: line.isBool ? laneRange(lane, lanes) : (_, low, high) => above(low, high, under) };
      return { label: line.path, scale, stroke: () => colour(line.colour), width: 2, paths: stepped, points: { show: false } };
    });
    const numbers = series.filter((_, at) => !this.#lines[at].isBool);
    const shown = [...new Set(numbers.map(({ scale }) => scale))].slice(0, 3);
    const axes = shown.map((scale, at) => axis({
      scale, side: 3, size: 56, values: (_, ticks) => ticks.map((tick) => number(tick, 6)),
      ...(at > 0 && { grid: { show: false } }),
      ...(shown.length > 1 && { stroke: numbers.find((one) => one.scale === scale).stroke }),
    }));
    return { scales, series: [{}, ...series], axes: [timeAxis(), ...axes], data: this.#data() };
  }

  #data() {
    const to = this.#actions.now();
    const paths = this.#lines.map((line) => line.path);
    const known = Math.min(this.#histories.since(paths), to - kShortestSpan);
    const from = Math.max(known, to - Number(byId("trend-span").value));
    return this.#histories.aligned(paths, from, to);
  }

  #draw() {
    if (!this.#plot || this.#section.closest("[hidden]")) return;
    this.#plot.setData(this.#data());
    this.#showValues(this.#plot.cursor.idx ?? null);
    setAttribute(this.#place, "aria-label", `Trend of ${this.#lines.map(spoken).join("; ")}`);
  }

  /** The values under the cursor, or the last ones. */
  #showValues(index) {
    this.#lines.forEach((line, at) => {
      const values = this.#plot?.data[at + 1] ?? [];
      const value = values[index ?? values.length - 1];
      line.text = value === null || value === undefined ? "unknown" : line.isBool ? (value ? "TRUE" : "FALSE") : number(value, 6);
      setText(line.value, line.text);
    });
  }
}

const spoken = (line) => `${line.path}: ${line.text}`;

/** A scale on which 0 to 1 is the lane with this number from the bottom; `height`: its part of the plot. */
function laneRange(lane, height) {
  const unit = 1 / (height * 0.6);
  const low = -(lane + 0.2) * height * unit;
  return [low, low + unit];
}

/** The range of a scale whose values leave the lowest part of the plot free. */
function above(low, high, part) {
  if (low === null || high === null) return [0, 1];
  const margin = (high - low) * 0.06 || Math.abs(high) * 0.1 || 1;
  const from = low - margin;
  const to = high + margin;
  return [from - ((to - from) * part) / (1 - part), to];
}
