// The scrub bar: a position, the marks of pictures that are not whole, and what lies under the
// pointer.

const margin = 12;

export class Bar {
  // seek(sample) while dragging and at a click; label(sample): the text of a position.
  constructor(bar, seek, label) {
    Object.assign(this, {bar, seek, label, times: null, sample: 0, damaged: new Set(), missing: new Set()});
    [this.marks, this.played, this.handle, this.hover] =
      ["marks", "played", "handle", "hover"].map(id => document.getElementById(id));
    bar.addEventListener("pointerdown", event => {
      if (event.button !== 0 || this.times === null)
        return;
      bar.setPointerCapture(event.pointerId);
      bar.focus();
      this.seek(this.sampleAt(event));
    });
    bar.addEventListener("pointermove", event => {
      this.point(event);
      if (bar.hasPointerCapture(event.pointerId))
        this.drag(event);
    });
    bar.addEventListener("pointerleave", () => { this.hover.hidden = true; });
    new ResizeObserver(() => { this.place(); this.draw(); }).observe(bar);
  }

  setTrack(times, damaged, missing) {
    Object.assign(this, {times, damaged: new Set(damaged), missing: new Set(missing)});
    this.bar.setAttribute("aria-valuemax", times.count - 1);
    this.draw();
  }

  mark(sample, state) {
    const marks = state === "missing" ? this.missing : this.damaged;
    if (!marks.has(sample)) {
      marks.add(sample);
      this.draw();
    }
  }

  // The next marked sample after one, around the end; null when there is none.
  markAfter(sample) {
    const all = [...this.damaged, ...this.missing].sort((a, b) => a - b);
    return all.find(marked => marked > sample) ?? all[0] ?? null;
  }

  setSample(sample) {
    this.sample = sample;
    this.bar.setAttribute("aria-valuenow", sample);
    this.bar.setAttribute("aria-valuetext", this.label(sample));
    this.place();
  }

  get width() {
    return Math.max(1, this.bar.clientWidth - 2 * margin);
  }

  sampleAt(event) {
    const share = (event.clientX - this.bar.getBoundingClientRect().left - margin) / this.width;
    return this.times.nearest(Math.min(1, Math.max(0, share)) * this.length);
  }

  // From the beginning of the first sample to that of the last one.
  get length() {
    return this.times?.start(this.times.count - 1) ?? 0;
  }

  x(sample) {
    return this.length === 0 ? 0 : this.times.start(sample) / this.length * this.width;
  }

  drag(event) {
    const sample = this.sampleAt(event);
    if (sample !== this.sample)
      this.seek(sample);
  }

  point(event) {
    if (this.times === null)
      return;
    const sample = this.sampleAt(event);
    this.hover.hidden = false;
    this.hover.textContent = this.label(sample);
    const half = this.hover.offsetWidth / 2;
    this.hover.style.left =
      `${Math.min(this.bar.clientWidth - half, Math.max(half, margin + this.x(sample)))}px`;
  }

  place() {
    this.handle.style.left = `${margin + this.x(this.sample)}px`;
    this.played.style.width = `${this.x(this.sample)}px`;
  }

  draw() {
    const scale = window.devicePixelRatio;
    const {marks} = this;
    marks.width = this.width * scale;
    marks.height = marks.clientHeight * scale;
    const context = marks.getContext("2d");
    const style = getComputedStyle(this.bar);
    for (const [samples, colour] of [[this.damaged, "--damaged"], [this.missing, "--missing"]]) {
      context.fillStyle = style.getPropertyValue(colour);
      for (const sample of samples)
        context.fillRect(this.x(sample) * scale - scale, 0, 2 * scale, marks.height);
    }
  }
}
