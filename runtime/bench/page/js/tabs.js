// SPDX-License-Identifier: MIT
// The tabs, after the tabs pattern of the ARIA Authoring Practices Guide. The address names the open one (#log).
import { byId } from "./dom.js";

const tabs = [...document.querySelectorAll("[role=tab]")];
const nameOf = (tab) => tab.getAttribute("aria-controls");

/** Whether this tab is open. */
export const isOpen = (name) => !byId(name).hidden;

/** Calls `opened(name)` for the first tab and whenever another is opened. */
export function startTabs(opened) {
  function open(tab) {
    for (const other of tabs) {
      other.setAttribute("aria-selected", other === tab);
      other.tabIndex = other === tab ? 0 : -1;
      byId(nameOf(other)).hidden = other !== tab;
    }
    opened(nameOf(tab));
  }
  function openNamed() {
    open(tabs.find((tab) => `#${nameOf(tab)}` === location.hash) ?? tabs[0]);
  }
  function step(event) {
    const here = tabs.indexOf(event.target);
    const to = { ArrowRight: here + 1, ArrowLeft: here - 1, Home: 0, End: tabs.length - 1 }[event.key];
    if (to === undefined) return;
    event.preventDefault();
    const tab = tabs[(to + tabs.length) % tabs.length];
    tab.focus();
    tab.click();
  }
  for (const tab of tabs) {
    tab.addEventListener("click", () => {
      history.replaceState(null, "", `#${nameOf(tab)}`);
      open(tab);
    });
    tab.addEventListener("keydown", step);
  }
  addEventListener("hashchange", openNamed);
  openNamed();
}
