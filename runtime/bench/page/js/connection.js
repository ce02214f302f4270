// SPDX-License-Identifier: MIT
// The WebSocket to the program (docs/bench.md), opened again whenever it is lost.

const kTopics = ["variables", "cycle", "modem", "messages", "log"];
const kProtocol = 1;
const kShortestWait = 300; // milliseconds until the next try, doubled up to kLongestWait
const kLongestWait = 3000;
const kSilent = 5000; // milliseconds without a message, after which the program is asked whether it is there
const kGone = 10000; // and after which it is not
const kAnswerWithin = 15000; // milliseconds; the program answers a request within five seconds

/**
 * Events: "open", "lost", "refused" (detail: the program's reason), "mismatch" (detail: its protocol), and for each message of the program one with
 * its type (detail: the message).
 */
export class Connection extends EventTarget {
  #socket = null;
  #wait = kShortestWait;
  #timer = null;
  #heard = 0; // when the last message came
  #requests = new Map();
  #lastRequest = 0;
  #clock = null; // the program's time minus performance.now(), in seconds

  start() {
    addEventListener("online", () => this.#openSoon(0));
    document.addEventListener("visibilitychange", () => {
      if (!document.hidden && !this.#socket) this.#openSoon(0);
    });
    setInterval(() => this.#listen(), 1000);
    this.#open();
  }

  /** A program that is stopped, or a network that drops everything, closes no connection. */
  #listen() {
    if (this.#socket?.readyState !== WebSocket.OPEN) return;
    const silent = performance.now() - this.#heard;
    if (silent > kGone) this.#lose(this.#socket);
    else if (silent > kSilent) this.#socket.send(JSON.stringify({ type: "get", request: 0, id: 0 }));
  }

  /** The program's time now, in Unix seconds: the reader's clock may differ. */
  now() {
    return this.#clock === null ? Date.now() / 1000 : this.#clock + performance.now() / 1000;
  }

  /** Asks for something. Resolves when it is done; rejects with the program's reason. */
  request(message) {
    return new Promise((resolve, reject) => {
      if (this.#socket?.readyState !== WebSocket.OPEN) {
        reject(new Error("There is no connection to the program."));
        return;
      }
      const request = ++this.#lastRequest;
      const timer = setTimeout(() => this.#answer(request, "The program did not answer."), kAnswerWithin);
      this.#requests.set(request, { resolve, reject, timer });
      this.#socket.send(JSON.stringify({ ...message, request }));
    });
  }

  #open() {
    const socket = new WebSocket(new URL("ws", location.href.replace(/^http/, "ws")));
    let hasOpened = false;
    this.#socket = socket;
    socket.onopen = () => {
      hasOpened = true;
      this.#wait = kShortestWait;
      this.#heard = performance.now();
      this.dispatchEvent(new Event("open"));
      socket.send(JSON.stringify({ type: "subscribe", topics: kTopics }));
    };
    socket.onmessage = (event) => socket === this.#socket && this.#receive(JSON.parse(event.data));
    socket.onclose = () => {
      this.#lose(socket);
      if (!hasOpened) this.#askWhy();
    };
  }

  /** A browser does not tell why a WebSocket was refused; the program tells a plain request. */
  async #askWhy() {
    try {
      const answer = await fetch("ws", { cache: "no-store" });
      const reason = (await answer.text()).trim();
      const isRefusal = answer.status === 401 || answer.status === 503;
      if (isRefusal && this.#socket?.readyState !== WebSocket.OPEN) {
        this.dispatchEvent(new CustomEvent("refused", { detail: reason }));
      }
    } catch {
      // It is not there.
    }
  }

  #receive(message) {
    this.#heard = performance.now();
    if (message.type === "hello" && message.protocol !== kProtocol) {
      this.dispatchEvent(new CustomEvent("mismatch", { detail: message.protocol }));
    }
    if (typeof message.time === "number") this.#clock = message.time - performance.now() / 1000;
    if (message.type === "result") this.#answer(message.request, message.ok ? "" : message.error || "It was refused.");
    else this.dispatchEvent(new CustomEvent(message.type, { detail: message }));
  }

  #answer(request, error) {
    const waiting = this.#requests.get(request);
    if (!waiting) return;
    this.#requests.delete(request);
    clearTimeout(waiting.timer);
    if (error) waiting.reject(new Error(error));
    else waiting.resolve();
  }

  #lose(socket) {
    if (socket !== this.#socket) return;
    this.#socket = null;
    socket.close();
    for (const request of [...this.#requests.keys()]) this.#answer(request, "The connection was lost before the answer.");
    this.dispatchEvent(new Event("lost"));
    this.#openSoon(this.#wait);
    this.#wait = Math.min(2 * this.#wait, kLongestWait);
  }

  #openSoon(wait) {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.#socket || this.#open(), wait);
  }
}
