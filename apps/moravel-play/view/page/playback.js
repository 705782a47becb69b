// Plays by the clock: pictures that come too late are left out, and counted.

import {fetchPicture} from "./pictures.js";

const mostPicturesPerSecond = 50;
const mostUnderWay = 4;
const mostReady = 8;
const readyAtStart = 6;
const longestPause = 1000;  // milliseconds

export class Playback {
  // make(picture): the order of a picture; draw(picture, answer, bitmap): shows it; late(count): so
  // many were left out; end(picture, answer): nothing more comes after that one; answer: of the picture that failed.
  constructor(make, draw, late, end) {
    Object.assign(this, {make, draw, late, end});
    this.running = null;
  }

  get isRunning() {
    return this.running !== null;
  }

  // Pictures 0 to `count` - 1, of which time(picture) tells when they begin, in seconds, and which
  // are `rate` a second and `each` a sample; `speed` is negative for backward.
  start(picture, {count, time, rate, each}, speed, generation) {
    const step = Math.sign(speed) * Math.max(1, Math.ceil(rate * Math.abs(speed) / mostPicturesPerSecond - 1e-6));
    const due = speed > 0 ? time : shown => time(shown + 1);  // backward, a picture begins with its end
    const run = {count, due, speed, each, now: null, generation, step, next: picture + step, last: picture, ready: new Map(),
                 underWay: 0, lag: 0, anchor: null, failed: null};
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

  async fetch(run, picture) {
    ++run.underWay;
    const since = performance.now();
    const answer = await fetchPicture({...this.make(picture), kind: "play", lane: "picture",
                                       step: Math.sign(run.step) * Math.ceil(Math.abs(run.step) / run.each),
                                       generation: run.generation});
    const bitmap = answer.picture && run === this.running ? await createImageBitmap(answer.picture) : null;
    --run.underWay;
    run.lag += (performance.now() - since - run.lag) / 4;
    if (run !== this.running) {
      bitmap?.close();
      return;
    }
    if (answer.state === "failed" || answer.state === "gone")
      run.failed = answer;
    else if (answer.state !== "stale")
      run.ready.set(picture, {answer, bitmap});
    this.fill(run);
  }

  tick(run, now) {
    if (run !== this.running)
      return;
    // A page that nobody saw, or a machine that slept: it goes on where it was.
    if (run.anchor !== null && now - run.now > longestPause)
      run.anchor.now += now - run.now;
    run.now = now;
    const isOver = run.next < 0 || run.next >= run.count;
    if (run.anchor === null && (run.ready.size >= readyAtStart || isOver))
      run.anchor = {now, time: run.due(run.last)};
    if (run.anchor !== null)
      this.drawUntil(run, run.anchor.time + (now - run.anchor.now) / 1000 * run.speed);
    if (run.failed !== null || (isOver && run.underWay === 0 && run.ready.size === 0)) {
      this.stop();
      this.end(run.last, run.failed);
      return;
    }
    requestAnimationFrame(later => this.tick(run, later));
  }

  // One that comes when a later one is shown already is left out; what would come too late is not
  // even ordered.
  drawUntil(run, time) {
    const isDue = (picture, then) => (run.due(picture) - then) * run.step <= 0;
    const isPassed = picture => (picture - run.last) * run.step <= 0;
    const due = [...run.ready.keys()].filter(picture => isDue(picture, time)).sort((a, b) => (a - b) * run.step);
    const shown = due.filter(picture => !isPassed(picture)).at(-1);
    let late = due.length - (shown === undefined ? 0 : 1);
    for (const picture of due) {
      const {answer, bitmap} = run.ready.get(picture);
      run.ready.delete(picture);
      if (picture === shown) {
        run.last = picture;
        this.draw(picture, answer, bitmap);
      }
      bitmap?.close();
    }
    const soonest = run.ready.size === 0 ? time + run.lag / 1000 * run.speed : time;
    for (; isDue(run.next, soonest) && run.next + run.step >= 0 && run.next + run.step < run.count; ++late)
      run.next += run.step;
    this.late(late);
    this.fill(run);
  }
}
