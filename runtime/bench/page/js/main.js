// SPDX-License-Identifier: MIT
// The bench: what a running program does, from its messages (docs/bench.md).
import { Connection } from "./connection.js";
import { CycleTab } from "./cycle_tab.js";
import { byId, setText } from "./dom.js";
import { age, duration } from "./format.js";
import { LogTab } from "./log_tab.js";
import { MessagesTab } from "./messages_tab.js";
import { ModemTab } from "./modem_tab.js";
import { startTabs } from "./tabs.js";
import { startTheme } from "./theme.js";
import { VariablesTab } from "./variables_tab.js";

const connection = new Connection();
let hello = null;
let isOpen = false;

function show(state, text) {
  byId("connection").dataset.state = state;
  setText(byId("connection"), text);
  document.body.classList.toggle("stale", state !== "live");
}

function greet(detail) {
  // A program of another version brings another page.
  if (hello && hello.version !== detail.version) location.reload();
  hello = detail;
  setText(byId("program"), hello.name ?? hello.program);
  document.title = `${hello.name ?? hello.program} – Corvane`;
  isOpen = true;
  showProgram();
}

function showProgram() {
  if (!hello) return;
  showFacts();
  if (!isOpen) return;
  if (hello.hangs) show("hangs", `No cycle has ended for ${age(connection.now() - hello.hangs)}`);
  else show("live", hello.write ? "Live, writing allowed" : "Live, read only");
}

function lose(text) {
  isOpen = false;
  show("lost", text);
}

function showFacts() {
  const facts = [hello.program, hello.cycle && `cycle ${duration(hello.cycle)}`, `Corvane ${hello.version}`,
    `process ${hello.pid}`, hello.started && `runs for ${age(connection.now() - hello.started)}`];
  setText(byId("facts"), facts.filter(Boolean).join(" · "));
}

startTheme();
const tabs = {
  variables: new VariablesTab(connection),
  cycle: new CycleTab(connection),
  modem: new ModemTab(connection),
  messages: new MessagesTab(connection),
  log: new LogTab(connection),
};
startTabs((name) => tabs[name].opened());
connection.addEventListener("hello", ({ detail }) => greet(detail));
connection.addEventListener("lost", () => lose("No connection; trying again…"));
connection.addEventListener("refused", ({ detail }) => lose(detail));
connection.addEventListener("mismatch", ({ detail }) =>
  lose(`The program speaks protocol ${detail}, which this page does not know; load the page again.`));
setInterval(showProgram, 1000);
connection.start();
