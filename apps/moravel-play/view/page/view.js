// The page: what is shown, and what keys and buttons do.

import {Bar} from "./bar.js";
import {Shower, fetchJson} from "./pictures.js";
import {Playback} from "./playback.js";
import {Strip} from "./strip.js";
import {timecode} from "./timecode.js";

const $ = id => document.getElementById(id);
const canvas = $("picture");

let tracks = [];
let track = null;
let sample = 0;       // the one that is wanted, or played
const latencies = []; // from an order to its picture on the page, in milliseconds
let drawn = 0;        // pictures, since the figures were last told

const label = number => track ? timecode(track, number) : "";
const bar = new Bar($("bar"), number => goTo(number), label);
const strip = new Strip($("strip"), number => goTo(number), label);
const shower = new Shower(orderOf, async (position, answer, since) => {
  const bitmap = answer.picture && await createImageBitmap(answer.picture);
  show(position, answer, bitmap);
  bitmap?.close();
  if (answer.picture) {
    latencies.push(performance.now() - since);
    latencies.splice(0, latencies.length - 64);
  }
});
const playback = new Playback(orderOf, (position, answer, bitmap) => {
  show(position, answer, bitmap);
  setSample(position);
}, endPlaying);

function orderOf(position) {
  return {track: track.number, sample: position, scale: scale(), field: field()};
}

function field() {
  return track.interlaced ? $("field").value : "frame";
}

// The decoded size: the smallest one that fills the place.
function scale() {
  const chosen = Number($("size").value);
  if (chosen !== 0)
    return chosen;
  const place = canvas.parentElement;
  const shape = Math.min(place.clientWidth / track.width, place.clientHeight / track.height);
  const wanted = track.width * shape * window.devicePixelRatio;
  return [8, 4, 2].find(each => track.width / each >= wanted) ?? 1;
}

function show(position, answer, bitmap) {
  tell(answer);
  if (answer.state === "failed" || answer.state === "gone")
    return;
  const notes = {damaged: "damaged", missing: "missing", broken: "cannot be decoded"};
  const note = notes[answer.state];
  $("note").hidden = !note;
  if (note) {
    bar.mark(position, answer.state);
    $("note").textContent = `Picture ${position} is ${note}${answer.reason ? `: ${answer.reason}` : ""}`
      .replace("is cannot", "cannot");
    $("note").className = answer.state;
  }
  draw(bitmap);
  ++drawn;
  canvas.dataset.sample = position;
  canvas.dataset.state = answer.state;
  canvas.setAttribute("aria-label", `Picture ${position} of ${track.samples}, ${label(position)}`);
}

// A field fills the shape of its frame.
function draw(bitmap) {
  const place = canvas.parentElement;
  const shape = Math.min(place.clientWidth / track.width, place.clientHeight / track.height);
  canvas.style.width = `${track.width * shape}px`;
  canvas.style.height = `${track.height * shape}px`;
  const width = bitmap ? bitmap.width : canvas.width;
  const height = bitmap ? Math.round(width * track.height / track.width) : canvas.height;
  if (canvas.width !== width || canvas.height !== height)
    Object.assign(canvas, {width, height});
  const context = canvas.getContext("2d");
  if (bitmap)
    context.drawImage(bitmap, 0, 0, width, height);
  else
    context.clearRect(0, 0, width, height);
}

// What is wrong with a server, while it is.
function tell(answer) {
  const isWrong = answer.state === "failed" || answer.state === "gone";
  $("banner").hidden = !isWrong;
  if (isWrong)
    $("banner").textContent = `${track.name}: ${answer.reason}. Trying again.`;
}

function setSample(number) {
  sample = number;
  bar.setSample(number);
  if (document.activeElement !== $("time"))
    $("time").value = label(number);
  $("number").textContent = `#${number} of ${track.samples}`;
  remember();
}

// The address keeps the place; browsers refuse to have it changed too often.
let remembered = 0;
function remember() {
  clearTimeout(remembered);
  remembered = setTimeout(
    () => history.replaceState(null, "", `#track=${track.number}&sample=${sample}`), 300);
}

function goTo(number) {
  pause();
  setSample(Math.min(track.samples - 1, Math.max(0, number)));
  shower.show(sample);
}

function showAgain() {
  if (!playback.isRunning)
    shower.show(sample);
}

// Playing.

function perSecond() {
  return track.rate[0] / track.rate[1] * Number($("speed").value);
}

function play(direction) {
  const isEnd = direction > 0 ? sample >= track.samples - 1 : sample <= 0;
  if (isEnd)
    goTo(direction > 0 ? 0 : track.samples - 1);
  playback.start(sample, track.samples, direction * perSecond(), shower.supersede());
  tellPlaying(direction);
}

function pause() {
  if (!playback.isRunning)
    return;
  playback.stop();
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
  tellPlaying(0);
  if (!failure) {
    goTo(resumed > 0 ? track.samples - 1 : 0);  // steps may have gone past it
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

function choose(number, at) {
  pause();
  track = tracks.find(each => each.number === number) ?? tracks[0];
  $("track").value = track.number;
  $("field-label").hidden = !track.interlaced;
  const rate = Math.round(track.rate[0] / track.rate[1] * 1000) / 1000;
  $("facts").textContent = `${track.width} × ${track.height}, ${rate} fps, ${label(track.samples)}`;
  document.title = `${track.name} – moravel-play view`;
  bar.setTrack(track.samples, track.damaged, track.missing);
  goTo(at);
  strip.setTrack(track);
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
    $("note").hidden = false;
    $("note").className = "missing";
    $("note").textContent = error.message;
  }
}

// Keys and buttons.

const second = () => Math.round(track.rate[0] / track.rate[1]);
const keys = {
  "ArrowLeft": event => goTo(sample - (event.shiftKey ? 10 : 1)),
  "ArrowRight": event => goTo(sample + (event.shiftKey ? 10 : 1)),
  "PageUp": () => goTo(sample - second()),
  "PageDown": () => goTo(sample + second()),
  "Home": () => goTo(0),
  "End": () => goTo(track.samples - 1),
  " ": () => direction() === 0 ? play(1) : pause(),
  "j": () => shuttle(-1),
  "k": () => pause(),
  "l": () => shuttle(1),
  "[": () => changeSpeed(-1),
  "]": () => changeSpeed(1),
  "m": () => goTo(bar.markAfter(sample) ?? sample),
  "t": () => nextOption($("track")),
  "f": () => { if (track.interlaced) nextOption($("field")); },
  "g": () => $("time").select(),
  "?": () => $("help").showModal(),
};

document.addEventListener("keydown", event => {
  const isTyping = event.target.matches("input, select") || $("help").open;
  const key = event.key.length === 1 ? event.key.toLowerCase() : event.key;
  if (event.key === "Escape" && event.target === $("time"))
    $("time").blur();
  if (isTyping || event.ctrlKey || event.altKey || event.metaKey || !Object.hasOwn(keys, key) || !track)
    return;
  event.preventDefault();
  keys[key](event);
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
$("field").onchange = showAgain;
$("speed").onchange = () => { if (direction() !== 0) play(direction()); };
$("time").oninput = () => $("time").classList.remove("wrong");
$("time").onblur = () => {
  $("time").value = label(sample);
  $("time").classList.remove("wrong");
};
$("seek").onsubmit = event => {
  event.preventDefault();
  seek($("time").value);
};
for (const select of document.querySelectorAll("select"))
  select.addEventListener("change", () => select.blur());
window.addEventListener("resize", () => {
  clearTimeout(window.resized);
  window.resized = setTimeout(showAgain, 150);
});

// Figures.

const megabytes = bytes => bytes / 1e6;
const milliseconds = value => value === undefined || value === 0 ? "–" : `${value.toFixed(value < 10 ? 1 : 0)} ms`;

function median(values) {
  return [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];
}

let before = null;
async function tellFigures() {
  try {
    const now = await fetchJson("figures");
    const at = performance.now();
    if (before !== null) {
      const read = megabytes(now.bytesRead - before.now.bytesRead);
      const seconds = now.secondsReading - before.now.secondsReading;
      if (seconds > 0 && read > 0)
        $("link").textContent = `${(read / seconds).toFixed(1)} MB/s`;
      $("rate").textContent = `${(drawn / (at - before.at) * 1000).toFixed(0)} /s`;
    }
    drawn = 0;
    $("latency").textContent = milliseconds(median(latencies));
    $("decode").textContent = milliseconds(now.decodeMs);
    const hits = now.orders === 0 ? 0 : now.cacheHits / now.orders;
    $("cache").textContent =
      `${megabytes(now.cacheBytes).toFixed(0)} of ${megabytes(now.cacheMaxBytes).toFixed(0)} MB, ${Math.round(hits * 100)} %`;
    before = {now, at};
  } catch {
    // The pictures tell that the program is gone.
  }
  setTimeout(tellFigures, 1000);
}

async function begin() {
  const facts = await fetchJson("tracks");
  tracks = facts.tracks;
  for (const each of tracks) {
    const option = new Option(`${each.number}: ${each.name}`, each.number);
    $("track").append(option);
  }
  const place = new URLSearchParams(location.hash.slice(1));
  choose(Number(place.get("track") ?? tracks[0].number), Number(place.get("sample") ?? 0));
  tellFigures();
}

begin().catch(error => {
  $("banner").hidden = false;
  $("banner").textContent = `The tracks cannot be read: ${error.message}`;
});
