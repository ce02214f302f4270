// SPDX-License-Identifier: MIT
// Light or dark: as the system has it, or as the user chose. Event "theme" on the document after a change.
import { byId } from "./dom.js";

const kKey = "corvane-theme";
const dark = matchMedia("(prefers-color-scheme: dark)");

function apply() {
  const chosen = byId("theme").value;
  document.documentElement.dataset.theme = chosen === "auto" ? (dark.matches ? "dark" : "light") : chosen;
  document.dispatchEvent(new Event("theme"));
}

export function startTheme() {
  const select = byId("theme");
  const stored = localStorage.getItem(kKey);
  if (["light", "dark"].includes(stored)) select.value = stored;
  select.addEventListener("change", () => {
    localStorage.setItem(kKey, select.value);
    apply();
  });
  dark.addEventListener("change", apply);
  apply();
}
