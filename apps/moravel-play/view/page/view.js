// The page: what is shown, and what keys and buttons do.

import {Bar} from "./bar.js";
import {Figures} from "./figures.js";
import {Shower, fetchJson} from "./pictures.js";
import {Playback} from "./playback.js";
import {Strip} from "./strip.js";
import {Times} from "./timecode.js";

const $ = id => document.getElementById(id);
const canvas = $("picture");

let tracks = [];
let track = null;
let times = null;     // of the track
let picture = 0;      // the one that is wanted, or played: a sample, or a field of one

const label = number => times?.label(number) ?? "";
const picturesEach = () => track.interlaced && $("field").value === "turn" ? 2 : 1;
const sampleOf = number => Math.floor(number / picturesEach());
const sampleNow = () => sampleOf(picture);
const bar = new Bar($("bar"), number => goTo(number), label);
const strip = new Strip($("strip"), number => goTo(number), label,
                        (number, state) => bar.mark(number, state));
const figures = new Figures();
const shower = new Shower(orderOf, (position, answer, bitmap, since) => {
  show(position, answer, bitmap);
  if (answer.picture)
    figures.addLatency(performance.now() - since);
});
const playback = new Playback(orderOf, (position, answer, bitmap) => {
  show(position, answer, bitmap);
  setPicture(position);
  expect();
}, late => { figures.late += late; }, endPlaying);

function orderOf(position) {
  return {track: track.number, sample: sampleOf(position), scale: scale(), field: fieldOf(position)};
}

function fieldOf(position) {
  if (!track.interlaced)
    return "frame";
  if (picturesEach() === 1)
    return $("field").value;
  return (position % 2 === 1) === track.bottomFirst ? "top" : "bottom";
}

// The decoded size: the smallest one that fills the place.
function scale() {
  const chosen = Number($("size").value);
  if (chosen !== 0)
    return chosen;
  const [width, height] = shownSize().map(side => side * window.devicePixelRatio);
  return [8, 4, 2].find(each => track.width / each >= width && track.height / each >= height) ?? 1;
}

// What the picture takes of the page: pixels need not be squares.
function shownSize() {
  const [width, height] = track.shape;
  const place = canvas.parentElement;
  const chosen = Number($("size").value);
  const unit = chosen !== 0 ? track.height / chosen / window.devicePixelRatio / height
    : Math.min(place.clientWidth / width, place.clientHeight / height);
  return [Math.max(1, Math.floor(width * unit)), Math.max(1, Math.floor(height * unit))];
}

function place() {
  if (track === null)
    return;
  canvas.parentElement.classList.toggle("scrolls", $("size").value !== "0");
  const [width, height] = shownSize();
  canvas.style.width = `${width}px`;
  canvas.style.height = `${height}px`;
}

function show(position, answer, bitmap) {
  expect(false);
  tell(answer);
  if (answer.state === "failed" || answer.state === "gone")
    return;
  const notes = {damaged: "damaged", missing: "missing", broken: "cannot be decoded"};
  const note = notes[answer.state];
  $("note").hidden = !note;
  const sample = sampleOf(position);
  if (note) {
    bar.mark(sample, answer.state);
    $("note").textContent = `Picture ${sample} is ${note}${answer.reason ? `: ${answer.reason}` : ""}`
      .replace("is cannot", "cannot");
    $("note").className = answer.state;
  }
  draw(bitmap);
  ++figures.drawn;
  $("timecode").textContent = answer.timecode && `TC ${answer.timecode}`;
  canvas.dataset.sample = sample;
  canvas.dataset.field = fieldOf(position);
  canvas.dataset.state = answer.state;
  canvas.setAttribute("aria-label", `Picture ${sample} of ${track.samples}, ${label(sample)}`);
}

// A field fills the shape of its frame.
function draw(bitmap) {
  place();
  if (bitmap && (canvas.width !== bitmap.width || canvas.height !== bitmap.height))
    Object.assign(canvas, {width: bitmap.width, height: bitmap.height});
  const context = canvas.getContext("2d");
  if (bitmap)
    context.drawImage(bitmap, 0, 0);
  else
    context.clearRect(0, 0, canvas.width, canvas.height);
}

// A picture that takes long is waited for in words, until it is shown.
let expected = 0;
function expect(isExpected = true) {
  clearTimeout(expected);
  $("wait").hidden = true;
  if (isExpected) {
    expected = setTimeout(() => {
      $("wait").textContent = `Waiting for ${track.name} …`;
      $("wait").hidden = false;
    }, 700);
  }
}

// What is wrong with a server, while it is.
function tell(answer) {
  const isWrong = answer.state === "failed" || answer.state === "gone";
  $("banner").hidden = !isWrong;
  if (isWrong) {
    $("banner").textContent = answer.state === "gone" ? answer.reason
      : `${track.name}: ${answer.reason}. Trying again.`;
  }
}

function setPicture(number) {
  picture = number;
  bar.setSample(sampleNow());
  if (document.activeElement !== $("time"))
    $("time").value = label(sampleNow());
  const field = picturesEach() === 2 ? ` ${fieldOf(number)} field,` : "";
  $("number").textContent = `#${sampleNow()}${field} of ${track.samples}`;
  remember();
}

// Browsers refuse to have the address changed too often.
let remembered = 0;
function remember() {
  clearTimeout(remembered);
  remembered = setTimeout(
    () => history.replaceState(null, "", `#track=${track.number}&sample=${sampleNow()}`), 300);
}

function goTo(sample) {
  goToPicture(Math.min(track.samples - 1, Math.max(0, sample)) * picturesEach());
}

function goToPicture(number) {
  pause();
  setPicture(Math.min(track.samples * picturesEach() - 1, Math.max(0, number)));
  expect();
  shower.show(picture);
}

function showAgain() {
  place();
  if (track !== null && !playback.isRunning)
    shower.show(picture);
}

// Playing.

function play(direction) {
  const each = picturesEach();
  const last = track.samples * each - 1;
  if (picture === (direction > 0 ? last : 0))
    goToPicture(direction > 0 ? 0 : last);
  const time = number => {  // the second field begins half way to the next sample
    const start = times.start(Math.floor(number / each));
    return number % each === 0 ? start : (start + times.start(Math.floor(number / each) + 1)) / 2;
  };
  playback.start(picture, {count: last + 1, time, rate: track.rate[0] / track.rate[1] * each, each},
                 direction * Number($("speed").value), shower.supersede());
  tellPlaying(direction);
  expect();
}

function pause() {
  if (!playback.isRunning)
    return;
  playback.stop();
  expect(false);
  tellPlaying(0);
}

function tellPlaying(direction) {
  $("forward").setAttribute("aria-pressed", direction > 0);
  $("backward").setAttribute("aria-pressed", direction < 0);
  $("forward").textContent = direction > 0 ? "❚❚" : "▶";
  $("backward").textContent = direction < 0 ? "❚❚" : "◀";
}

function direction() {
  return $("forward").getAttribute("aria-pressed") === "true" ? 1
    : $("backward").getAttribute("aria-pressed") === "true" ? -1 : 0;
}

function toggle(wanted) {
  if (direction() === wanted)
    pause();
  else
    play(wanted);
}

// The end of the track, or a server that does not answer: shown until it does, then played on.
function endPlaying(last, failure) {
  const resumed = direction();
  expect(false);
  tellPlaying(0);
  if (!failure) {
    goToPicture(resumed > 0 ? track.samples * picturesEach() - 1 : 0);  // steps may have gone past it
    return;
  }
  tell(failure);
  const generation = shower.generation;
  setTimeout(() => {
    if (shower.generation === generation && !playback.isRunning)
      play(resumed);
  }, 1000);
}

function changeSpeed(by) {
  const select = $("speed");
  select.selectedIndex = Math.min(select.options.length - 1, Math.max(0, select.selectedIndex + by));
  select.dispatchEvent(new Event("change"));
}

// Again in the same direction is faster.
function shuttle(wanted) {
  if (direction() === wanted)
    changeSpeed(1);
  else
    play(wanted);
}

// Tracks.

let choosing = 0;
function choose(number, at) {
  load(number, at).catch(error => {
    $("banner").hidden = false;
    $("banner").textContent = `The track cannot be read: ${error.message}`;
  });
}

async function load(number, at) {
  const chosen = tracks.find(each => each.number === number) ?? tracks[0];
  const serial = ++choosing;
  const variable = chosen.variable ? await fetchJson(`times?track=${chosen.number}`) : null;
  if (serial !== choosing)
    return;
  if (track !== null)
    pause();
  track = chosen;
  each = picturesEach();
  times = new Times(track, variable);
  $("track").value = track.number;
  $("track").title = track.path;
  $("field-label").hidden = !track.interlaced;
  const rate = Math.round(track.rate[0] / track.rate[1] * 1000) / 1000;
  const facts = [`${track.width} × ${track.height}`, track.variable ? "variable rate" : `${rate} fps`,
                 label(track.samples)];
  if (track.interlaced)
    facts.push(`${track.bottomFirst ? "bottom" : "top"} field first`);
  if (track.timecode)
    facts.push(`TC from ${track.timecode}`);
  $("facts").textContent = $("facts").title = facts.join(", ");
  document.title = `${track.name} – moravel-play view`;
  bar.setTrack(times, track.damaged, track.missing);
  goTo(Number.isInteger(at) ? at : 0);
  strip.setTrack(track, times);
}

function nextOption(select) {
  select.selectedIndex = (select.selectedIndex + 1) % select.options.length;
  select.dispatchEvent(new Event("change"));
}

async function seek(text) {
  try {
    const found = await fetchJson(`sample?${new URLSearchParams({track: track.number, time: text})}`);
    goTo(found.sample);
    canvas.focus();
    $("time").blur();
  } catch (error) {
    $("time").classList.add("wrong");
    $("time").setCustomValidity(error.message);
    $("time").reportValidity();
  }
}

// Keys and buttons.

// The sample that is so many seconds away, and at least the next one.
function secondsAway(seconds) {
  const now = sampleNow();
  const there = times.nearest(times.start(now) + seconds);
  return seconds > 0 ? Math.max(there, now + 1) : Math.min(there, now - 1);
}

const keys = {
  "ArrowLeft": event => goToPicture(picture - (event.shiftKey ? 10 : 1)),
  "ArrowRight": event => goToPicture(picture + (event.shiftKey ? 10 : 1)),
  "PageUp": () => goTo(secondsAway(-1)),
  "PageDown": () => goTo(secondsAway(1)),
  "Home": () => goTo(0),
  "End": () => goToPicture(track.samples * picturesEach() - 1),
  " ": () => direction() === 0 ? play(1) : pause(),
  "j": () => shuttle(-1),
  "k": () => pause(),
  "l": () => shuttle(1),
  "[": () => changeSpeed(-1),
  "]": () => changeSpeed(1),
  "m": () => goTo(bar.markAfter(sampleNow()) ?? sampleNow()),
  "t": () => nextOption($("track")),
  "f": () => { if (track.interlaced) nextOption($("field")); },
  "g": () => $("time").select(),
  "?": () => $("help").showModal(),
};

document.addEventListener("keydown", event => {
  const isTyping = event.target.matches("input, select") || $("help").open;
  if (event.key === " " && event.target.matches("button"))
    return;
  const key = event.key.length === 1 ? event.key.toLowerCase() : event.key;
  if (event.key === "Escape" && event.target === $("time"))
    $("time").blur();
  if (isTyping || event.ctrlKey || event.altKey || event.metaKey || !Object.hasOwn(keys, key) || !track)
    return;
  event.preventDefault();
  keys[key](event);
});

// Who uses the mouse finds the keys do what they always do; who moves with tab keeps the place.
document.addEventListener("click", event => {
  if (event.detail > 0)
    event.target.closest("button")?.blur();
});
$("first").onclick = keys.Home;
$("previous").onclick = keys.ArrowLeft;
$("backward").onclick = () => toggle(-1);
$("forward").onclick = () => toggle(1);
$("next").onclick = keys.ArrowRight;
$("last").onclick = keys.End;
$("help-button").onclick = keys["?"];
$("track").onchange = event => choose(Number(event.target.value), 0);
$("size").onchange = showAgain;
let each = 1;  // pictures a sample, before the field was switched
$("field").onchange = () => {
  const sample = Math.floor(picture / each);
  each = picturesEach();
  goTo(sample);
};
$("speed").onchange = () => { if (direction() !== 0) play(direction()); };
function clearWrong() {
  $("time").classList.remove("wrong");
  $("time").setCustomValidity("");
}
$("time").oninput = clearWrong;
$("time").onblur = () => {
  $("time").value = label(sampleNow());
  clearWrong();
};
$("seek").onsubmit = event => {
  event.preventDefault();
  seek($("time").value);
};
for (const select of document.querySelectorAll("select"))
  select.addEventListener("change", () => select.blur());
let resized = 0;
new ResizeObserver(() => {
  place();
  clearTimeout(resized);
  resized = setTimeout(showAgain, 150);
}).observe(canvas.parentElement);

// The address keeps the place: #track=2&sample=137.

function goToAddress() {
  const at = new URLSearchParams(location.hash.slice(1));
  choose(Number(at.get("track") ?? tracks[0].number), Number(at.get("sample") ?? 0));
}

async function begin() {
  const facts = await fetchJson("tracks");
  tracks = facts.tracks;
  for (const each of tracks) {
    const option = new Option(`${each.number}: ${each.name}`, each.number);
    option.title = each.path;
    $("track").append(option);
  }
  goToAddress();
  window.addEventListener("hashchange", goToAddress);
}

begin().catch(error => {
  $("banner").hidden = false;
  $("banner").textContent = `The tracks cannot be read: ${error.message}`;
});
