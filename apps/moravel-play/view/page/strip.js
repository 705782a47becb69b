// Thumbnails over the whole track, fetched one after the other while nobody waits for anything else,
// and kept: another width of the window takes those that lie near enough.

import {fetchPicture} from "./pictures.js";

const thumbnailHeight = 54;  // as in view.css
const mostKept = 500;

// When somebody sees the page.
async function seen() {
  while (document.hidden)
    await new Promise(resolve => document.addEventListener("visibilitychange", resolve, {once: true}));
}

export class Strip {
  // mark(sample, state): told of thumbnails whose pictures are not whole.
  constructor(strip, seek, label, mark) {
    Object.assign(this, {strip, seek, label, mark, track: null, generation: 0, kept: new Map()});
    new ResizeObserver(() => {
      clearTimeout(this.resized);
      this.resized = setTimeout(() => this.fill(), 200);
    }).observe(strip);
  }

  setTrack(track, times) {
    Object.assign(this, {track, times});
    this.number = 0;
    this.fill();
  }

  async fill() {
    const {track} = this;
    const number = Math.min(track?.samples ?? 0, Math.max(2, Math.floor(this.strip.clientWidth / this.thumbnailWidth)));
    if (number === this.number || this.strip.clientHeight === 0)
      return;
    this.number = number;
    this.strip.classList.toggle("wide", this.shape > this.strip.clientWidth / number / thumbnailHeight);
    const generation = ++this.generation;
    const duration = this.times.start(track.samples);
    const near = duration / number / 4;
    const buttons = Array.from({length: number}, (_, i) => {
      const time = duration * (i + 0.5) / number;
      return this.makeButton(this.keptNear(time, near) ?? this.times.find(time));
    });
    this.strip.replaceChildren(...buttons);
    for (const button of buttons) {
      const kept = this.kept.get(this.key(button.dataset.sample));
      if (kept) {
        this.put(button, kept);
        continue;
      }
      await seen();
      while (generation === this.generation && !await this.load(button, generation))
        await new Promise(resolve => setTimeout(resolve, 2000));
    }
  }

  get shape() {
    return this.track === null ? 1 : this.track.shape[0] / this.track.shape[1];
  }

  get thumbnailWidth() {
    return Math.min(240, Math.max(40, Math.round(thumbnailHeight * this.shape) + 2));
  }

  key(sample) {
    return `${this.track.number}:${sample}`;
  }

  keptNear(time, distance) {
    const samples = [...this.kept.keys()].filter(key => key.startsWith(this.key("")))
      .map(key => Number(key.slice(this.key("").length)));
    return samples.find(sample => Math.abs(this.times.start(sample) - time) <= distance);
  }

  put(button, address) {
    const image = new Image();
    image.alt = "";
    image.style.aspectRatio = this.shape;
    image.src = address;
    button.replaceChildren(image);
  }

  keep(sample, address) {
    this.kept.set(this.key(sample), address);
    if (this.kept.size > mostKept) {
      const [oldest, old] = this.kept.entries().next().value;
      this.kept.delete(oldest);
      URL.revokeObjectURL(old);
    }
  }

  makeButton(sample) {
    const button = document.createElement("button");
    button.type = "button";
    button.tabIndex = -1;  // the bar does the same with keys
    button.dataset.sample = sample;
    button.title = this.label(sample);
    button.setAttribute("aria-label", `Go to ${button.title}`);
    button.addEventListener("click", () => this.seek(sample));
    return button;
  }

  // False when it is to be tried again.
  async load(button, generation) {
    const scale = [8, 4, 2].find(each => this.track.height / each >= thumbnailHeight) ?? 1;
    const answer = await fetchPicture({track: this.track.number, sample: button.dataset.sample, scale,
                                       field: "frame", kind: "thumbnail", lane: "strip", generation});
    if (answer.picture && generation === this.generation) {
      this.keep(button.dataset.sample, URL.createObjectURL(answer.picture));
      this.put(button, this.kept.get(this.key(button.dataset.sample)));
    } else {
      button.classList.add(answer.state);
    }
    if (generation === this.generation && ["damaged", "broken", "missing"].includes(answer.state))
      this.mark(Number(button.dataset.sample), answer.state);
    return answer.state !== "failed" && answer.state !== "gone";
  }
}
