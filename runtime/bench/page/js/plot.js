// SPDX-License-Identifier: MIT
// What our two plots have in common: size, axes and colours.
import { colour, element } from "./dom.js";
import { timeOfDay } from "./format.js";

const uPlot = window.uPlot; // its package comes as a script, not as a module

export const stepped = uPlot.paths.stepped({ align: 1 });

/** An axis in the colours of the style sheet. */
export function axis(more = {}) {
  return {
    stroke: () => colour("--soft"),
    grid: { stroke: () => colour("--line"), width: 1 },
    ticks: { stroke: () => colour("--line"), width: 1, size: 4 },
    font: "12px system-ui, sans-serif",
    ...more,
  };
}

export const timeAxis = () => axis({ values: (_, times) => times.map((time) => timeOfDay(time)), space: 80, size: 30 });

/** A plot as wide as `place`, which it follows, with its time axis; cursor moves show values through `moved(index)`. */
export function newPlot(place, options, moved) {
  const size = () => ({ width: Math.max(200, place.clientWidth), height: Math.max(120, place.clientHeight) });
  place.replaceChildren();
  const plot = new uPlot({
    ...size(),
    legend: { show: false },
    cursor: { drag: { x: false, y: false }, points: { show: false } },
    padding: [8, 32, 0, 4], // half of the last time is right of the plot
    ...options,
    hooks: { setCursor: [(self) => moved(self.cursor.idx ?? null)], destroy: [() => resized.disconnect()] },
  }, options.data, place);
  const resized = new ResizeObserver(() => plot.setSize(size()));
  resized.observe(place);
  return plot;
}

/** The colours of a plot follow the theme. */
export function redrawWithTheme(plotNow) {
  document.addEventListener("theme", () => plotNow()?.redraw(true, true));
}

/** One line of a legend: { item, value }. */
export function legendItem(name, colourName, ...more) {
  const value = element("b");
  const swatch = element("i", { "aria-hidden": "true" });
  swatch.style.background = `var(${colourName})`;
  return { item: element("li", {}, swatch, element("bdi", {}, name), " ", value, ...more), value };
}
