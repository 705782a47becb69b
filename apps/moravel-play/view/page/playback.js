// Plays by the clock: pictures that come too late are left out.

import {fetchPicture} from "./pictures.js";

const mostPicturesPerSecond = 50;
const mostUnderWay = 4;
const mostReady = 8;

export class Playback {
  // make(sample): the order of a sample; draw(sample, answer, bitmap): shows it;
  // end(sample, answer): nothing more comes after that sample; answer: of the picture that failed.
  constructor(make, draw, end) {
    Object.assign(this, {make, draw, end});
    this.running = null;
  }

  get isRunning() {
    return this.running !== null;
  }

  // `perSecond`: samples of the track a second, negative for backward.
  start(sample, count, perSecond, generation) {
    const step = Math.sign(perSecond) * Math.max(1, Math.ceil(Math.abs(perSecond) / mostPicturesPerSecond));
    const run = {count, perSecond, generation, step, next: sample + step, last: sample, ready: new Map(),
                 underWay: 0, anchor: null, failed: null};
    this.stop();
    this.running = run;
    this.fill(run);
    requestAnimationFrame(now => this.tick(run, now));
  }

  stop() {
    const run = this.running;
    this.running = null;
    for (const {bitmap} of run?.ready.values() ?? [])
      bitmap?.close();
    return run?.last;
  }

  fill(run) {
    while (run === this.running && run.underWay < mostUnderWay && run.ready.size < mostReady &&
           run.next >= 0 && run.next < run.count) {
      this.fetch(run, run.next);
      run.next += run.step;
    }
  }

  async fetch(run, sample) {
    ++run.underWay;
    const answer = await fetchPicture({...this.make(sample), kind: "play", step: run.step, lane: "picture",
                                       generation: run.generation});
    const bitmap = answer.picture && run === this.running ? await createImageBitmap(answer.picture) : null;
    --run.underWay;
    if (run !== this.running) {
      bitmap?.close();
      return;
    }
    if (answer.state === "failed" || answer.state === "gone")
      run.failed = answer;
    else if (answer.state !== "stale")
      run.ready.set(sample, {answer, bitmap});
    this.fill(run);
  }

  tick(run, now) {
    if (run !== this.running)
      return;
    const isOver = run.next < 0 || run.next >= run.count;
    if (run.anchor === null && (run.ready.size >= 2 || isOver))
      run.anchor = {now, sample: run.last};
    if (run.anchor !== null)
      this.drawUntil(run, run.anchor.sample + (now - run.anchor.now) / 1000 * run.perSecond);
    if (run.failed !== null || (isOver && run.underWay === 0 && run.ready.size === 0)) {
      this.stop();
      this.end(run.last, run.failed);
      return;
    }
    requestAnimationFrame(later => this.tick(run, later));
  }

  drawUntil(run, position) {
    const isDue = sample => (sample - position) * run.step <= 0;
    const due = [...run.ready.keys()].filter(isDue).sort((a, b) => (a - b) * run.step);
    due.forEach((sample, i) => {
      const {answer, bitmap} = run.ready.get(sample);
      run.ready.delete(sample);
      if (i === due.length - 1) {
        run.last = sample;
        this.draw(sample, answer, bitmap);
      }
      bitmap?.close();
    });
    while (isDue(run.next) && run.next + run.step >= 0 && run.next + run.step < run.count)
      run.next += run.step;
    this.fill(run);
  }
}
