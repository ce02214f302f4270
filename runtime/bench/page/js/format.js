// SPDX-License-Identifier: MIT
// How values and times are written. Times are Unix seconds of the program's machine.

const kRowText = 200; // characters of a text in a row; more cannot be seen

/** A number as people read it: up to `digits` significant digits. */
export function number(value, digits = 10) {
  if (Number.isNaN(value)) return "NaN";
  if (!Number.isFinite(value)) return value < 0 ? "-∞" : "∞";
  return Number.isInteger(value) ? String(value) : String(Number(value.toPrecision(digits)));
}

/** A whole number with its thousands apart. */
export const count = (value) => value.toLocaleString("en");

/** A value in one line. */
export function shortValue(node) {
  const { value } = node;
  if (node.secret) return "hidden";
  if (value === null || value === undefined) return "nil";
  if (typeof value === "boolean") return value ? "TRUE" : "FALSE";
  if (typeof value === "number") return number(value);
  const text = textOf(value);
  const start = text.length > kRowText ? Array.from(text.slice(0, kRowText)).slice(0, -1).join("") + "…" : text;
  return `"${start.replace(/\r?\n|\r/g, "⏎")}"`;
}

/** A text, of which there may be only the beginning. */
export const textOf = (value) => (typeof value === "object" ? value.text : value);

/** A duration in seconds, with three digits and its unit. */
export function duration(seconds) {
  if (seconds === 0) return "0 s";
  for (const [unit, size] of [["s", 1], ["ms", 1e-3], ["µs", 1e-6]]) {
    if (Math.abs(seconds) >= size) return `${Number((seconds / size).toPrecision(3))} ${unit}`;
  }
  return `${Number((seconds / 1e-6).toPrecision(2))} µs`;
}

/** How long ago, in one or two words; `seconds` may be slightly negative when clocks differ. */
export function ago(seconds) {
  if (seconds < 1) return "now";
  if (seconds < 60) return `${Math.floor(seconds)} s ago`;
  if (seconds < 3600) return `${Math.floor(seconds / 60)} min ago`;
  if (seconds < 86400) return `${Math.floor(seconds / 3600)} h ago`;
  return `${Math.floor(seconds / 86400)} d ago`;
}

/** How long something has run. */
export function age(seconds) {
  const minutes = Math.floor(seconds / 60);
  if (minutes < 1) return `${Math.max(0, Math.floor(seconds))} s`;
  if (minutes < 60) return `${minutes} min`;
  if (minutes < 1440) return `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
  return `${Math.floor(minutes / 1440)} d ${Math.floor(minutes / 60) % 24} h`;
}

const two = (value) => String(value).padStart(2, "0");

/** The time of day on the reader's clock, with milliseconds on request. */
export function timeOfDay(time, withMilliseconds = false) {
  const date = new Date(time * 1000);
  const text = `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;
  return withMilliseconds ? `${text}.${String(date.getMilliseconds()).padStart(3, "0")}` : text;
}

/** Date and time; the date only when it is not today. */
export function dateAndTime(time, withMilliseconds = false) {
  const date = new Date(time * 1000);
  const ofDay = timeOfDay(time, withMilliseconds);
  if (date.toDateString() === new Date().toDateString()) return ofDay;
  return `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())} ${ofDay}`;
}
