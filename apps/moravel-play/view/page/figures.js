// What the page and the program measure, told once a second while somebody sees it.

import {fetchJson} from "./pictures.js";

const seconds = 5;  // that rates are taken over

const $ = id => document.getElementById(id);
const megabytes = bytes => bytes / 1e6;
const percent = (part, whole) => `${Math.round(part / whole * 100)} %`;
const milliseconds = value => value ? `${value.toFixed(value < 10 ? 1 : 0)} ms` : "–";

function median(values) {
  return [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];
}

export class Figures {
  constructor() {
    this.latencies = [];  // of the last pictures, in milliseconds
    this.drawn = 0;
    this.late = 0;
    this.before = [];  // what was told in the last seconds, latest last
    document.addEventListener("visibilitychange", () => this.tell());
    this.tell();
  }

  addLatency(time) {
    this.latencies.push(time);
    this.latencies.splice(0, this.latencies.length - 64);
  }

  async tell() {
    clearTimeout(this.next);
    this.next = 0;
    if (document.hidden)
      return;
    const next = this.next = setTimeout(() => this.tell(), 1000);
    try {
      const program = await fetchJson("figures");
      if (next === this.next)
        this.show({...program, at: performance.now() / 1000, drawn: this.drawn, late: this.late});
    } catch {
      // The pictures tell that the program is gone.
    }
  }

  show(now) {
    $("latency").textContent = milliseconds(median(this.latencies));
    $("decode").textContent = milliseconds(now.decodeMs);
    $("cache").textContent = `${megabytes(now.cacheBytes).toFixed(0)} of ${megabytes(now.cacheMaxBytes).toFixed(0)} MB`;
    const last = this.before.at(-1);
    this.before = this.before.filter(then => now.at - then.at < seconds + 0.5);
    const [first] = this.before;
    this.before.push(now);
    if (first === undefined)
      return;
    const since = name => now[name] - first[name];
    const rate = (now.drawn - last.drawn) / (now.at - last.at);
    $("rate").textContent = `${rate.toFixed(0)} /s${since("late") ? `, ${since("late")} late` : ""}`;
    if (since("orders") > 0)
      $("found").textContent = percent(since("cacheHits"), since("orders"));
    $("link").textContent = `${(megabytes(since("bytesRead")) / since("at")).toFixed(1)} MB/s`;
    $("busy").textContent = percent(Math.min(since("secondsReading"), since("at")), since("at"));
  }
}
