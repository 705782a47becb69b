// When the samples of a track begin, and how that is written.

const two = number => String(number).padStart(2, "0");

export class Times {
  // `track` as the program describes it; of a variable rate with its times: {rate, runs}, of runs of
  // samples [count, duration, count, duration, ...] in units of that rate.
  constructor(track, times) {
    this.count = track.samples;
    this.isVariable = times !== null;
    const [numerator, denominator] = this.rate = times?.rate ?? track.rate;
    this.unit = denominator / numerator;
    this.runs = [];  // {first, start, duration}, of whole units
    let first = 0, start = 0;
    const runs = times?.runs ?? [track.samples, 1];
    for (let i = 0; i < runs.length; i += 2) {
      this.runs.push({first, start, duration: runs[i + 1]});
      first += runs[i];
      start += runs[i] * runs[i + 1];
    }
  }

  // The last run for which `isBefore` holds.
  run(isBefore) {
    let [low, high] = [0, this.runs.length - 1];
    while (low < high) {
      const middle = Math.ceil((low + high) / 2);
      [low, high] = isBefore(this.runs[middle]) ? [middle, high] : [low, middle - 1];
    }
    return this.runs[low];
  }

  // In seconds; of the one behind the last one, the end.
  start(sample) {
    const {first, start, duration} = this.run(run => run.first <= sample);
    return (start + (sample - first) * duration) * this.unit;
  }

  // The sample that is shown then, and the one that begins next to it.
  find(seconds) {
    const units = seconds / this.unit + 1e-6;
    const {first, start, duration} = this.run(run => run.start <= units);
    const sample = duration === 0 ? first : first + Math.floor((units - start) / duration);
    return Math.min(this.count - 1, Math.max(0, sample));
  }
  nearest(seconds) {
    const sample = this.find(seconds);
    const next = Math.min(sample + 1, this.count - 1);
    return this.start(next) - seconds < seconds - this.start(sample) ? next : sample;
  }

  // Hours, minutes, seconds and pictures within the second, as the program takes them; of a variable
  // rate with thousandths.
  label(sample) {
    if (this.isVariable) {
      const thousandths = Math.ceil(this.start(sample) * 1000 - 1e-6);
      const seconds = Math.floor(thousandths / 1000);
      return `${Times.clock(seconds)}.${String(thousandths % 1000).padStart(3, "0")}`;
    }
    const [numerator, denominator] = this.rate;
    const second = Math.floor(sample * denominator / numerator);
    return `${Times.clock(second)}:${two(sample - Math.ceil(second * numerator / denominator))}`;
  }

  static clock(seconds) {
    return [Math.floor(seconds / 3600), Math.floor(seconds / 60) % 60, seconds % 60].map(two).join(":");
  }
}
