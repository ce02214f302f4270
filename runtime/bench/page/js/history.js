// SPDX-License-Identifier: MIT
// What the numbers and BOOLs were during the last ten minutes, as far as the page has seen it.

/** How far a trend reaches back, in seconds. */
export const kTrendSeconds = 600;
// About 16 octets each. Beyond it, variables that are not plotted keep one value per second.
const kManyPoints = 2_000_000;

/** The values of one variable, each with the time from which it held; null: unknown from then on. */
class History {
  times = [];
  values = [];
  first = 0; // points before it are too old; the arrays are cut now and then

  get length() {
    return this.times.length - this.first;
  }

  get start() {
    return this.times[this.first] ?? Infinity;
  }

  get last() {
    return this.values[this.values.length - 1];
  }

  push(time, value) {
    this.times.push(time);
    this.values.push(value);
  }

  /** Drops what ended before `time`; the value that held at that time stays. */
  forget(time) {
    while (this.first + 1 < this.times.length && this.times[this.first + 1] <= time) this.first++;
    if (this.first < 512 || this.first < this.times.length / 2) return;
    this.times.splice(0, this.first);
    this.values.splice(0, this.first);
    this.first = 0;
  }
}

/** The histories of all variables, by path, so that they go on when the program has restarted. */
export class Histories {
  /** Paths of the variables that are plotted: they keep every value. */
  plotted = new Set();
  #all = new Map();
  #points = 0;

  has(path) {
    return this.#all.has(path);
  }

  record(path, time, value) {
    let history = this.#all.get(path);
    if (typeof value !== "number" && typeof value !== "boolean") {
      if (history && history.last !== null) this.#push(history, time, null);
      return;
    }
    if (!history) this.#all.set(path, (history = new History()));
    const point = Number.isFinite(Number(value)) ? Number(value) : null;
    if (point === history.last) return;
    if (this.#points > kManyPoints && !this.plotted.has(path) && history.times.at(-1) > time - 1) {
      history.values[history.values.length - 1] = point;
    } else {
      this.#push(history, time, point);
    }
  }

  /** Nothing is known from this time on: the connection is lost. */
  interrupt(time) {
    for (const history of this.#all.values()) {
      if (history.length > 0 && history.last !== null) this.#push(history, time, null);
    }
  }

  /** Drops what is too old. */
  forget(now) {
    this.#points = 0;
    for (const history of this.#all.values()) {
      history.forget(now - kTrendSeconds);
      this.#points += history.length;
    }
  }

  clear() {
    this.#all.clear();
    this.plotted.clear();
    this.#points = 0;
  }

  /** From when on one of `paths` is known. */
  since(paths) {
    return Math.min(...paths.map((path) => this.#all.get(path)?.start ?? Infinity));
  }

  /**
   * The histories of `paths` from `from` to `to` on common times: [times, values...], as uPlot draws them. Between two
   * changes a value holds.
   */
  aligned(paths, from, to) {
    const histories = paths.map((path) => this.#all.get(path) ?? new History());
    const moments = new Set([from, to]);
    for (const { times, first } of histories) {
      for (let at = times.length - 1; at >= first && times[at] > from; at--) if (times[at] < to) moments.add(times[at]);
    }
    const times = Float64Array.from(moments).sort();
    return [times, ...histories.map((history) => held(history, times))];
  }

  #push(history, time, value) {
    history.push(time, value);
    this.#points++;
  }
}

/** The value that held at each of the times, which ascend. */
function held(history, times) {
  let at = history.first - 1;
  return Array.from(times, (time) => {
    while (at + 1 < history.times.length && history.times[at + 1] <= time) at++;
    return at < history.first ? null : history.values[at];
  });
}
