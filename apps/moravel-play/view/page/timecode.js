// Hours, minutes, seconds and pictures within the second, as the program writes them.
export function timecode({rate: [numerator, denominator]}, sample) {
  const second = Math.floor(sample * denominator / numerator);
  const first = Math.ceil(second * numerator / denominator);
  const parts = [Math.floor(second / 3600), Math.floor(second / 60) % 60, second % 60, sample - first];
  return parts.map(part => String(part).padStart(2, "0")).join(":");
}
