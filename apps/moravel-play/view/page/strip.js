// Thumbnails over the whole track, fetched one after the other while nobody waits for anything else.

import {fetchPicture} from "./pictures.js";

const thumbnailWidth = 100;

export class Strip {
  constructor(strip, seek, label) {
    Object.assign(this, {strip, seek, label, track: null, generation: 0});
    new ResizeObserver(() => {
      clearTimeout(this.resized);
      this.resized = setTimeout(() => this.fill(), 200);
    }).observe(strip);
  }

  setTrack(track) {
    this.track = track;
    this.number = 0;
    this.fill();
  }

  async fill() {
    const {track} = this;
    const number = Math.min(track?.samples ?? 0, Math.max(2, Math.floor(this.strip.clientWidth / thumbnailWidth)));
    if (number === this.number || this.strip.clientHeight === 0)
      return;
    this.number = number;
    const generation = ++this.generation;
    for (const old of this.strip.querySelectorAll("img"))
      URL.revokeObjectURL(old.src);
    const buttons = Array.from({length: number}, (_, i) =>
      this.makeButton(Math.floor((i + 0.5) * track.samples / number)));
    this.strip.replaceChildren(...buttons);
    for (const button of buttons) {
      while (generation === this.generation && !await this.load(button, generation))
        await new Promise(resolve => setTimeout(resolve, 2000));
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
    const scale = [8, 4, 2].find(each => this.track.width / each >= thumbnailWidth) ?? 1;
    const answer = await fetchPicture({track: this.track.number, sample: button.dataset.sample, scale,
                                       field: "frame", kind: "thumbnail", lane: "strip", generation});
    if (answer.picture && generation === this.generation) {
      const image = new Image();
      image.alt = "";
      image.src = URL.createObjectURL(answer.picture);
      button.replaceChildren(image);
    }
    return answer.state !== "failed" && answer.state !== "gone";
  }
}
