// Asks the program for pictures.

const page = Math.random().toString(36).slice(2, 12);

// One picture of `order` {track, sample, scale, field, kind, step, lane, generation}:
// {state, picture (a blob), reason, timecode (the file's)}. The states are the program's, and "gone"
// when it does not answer at all, or another one does.
export async function fetchPicture(order) {
  const query = new URLSearchParams({...order, lane: `${page}-${order.lane}`});
  let response;
  try {
    response = await fetch(`picture?${query}`);
    const state = response.headers.get("X-Picture") ?? "failed";
    const timecode = response.headers.get("X-Timecode") ?? "";
    if (response.ok && response.status !== 204) {
      const reason = JSON.parse(response.headers.get("X-Reason") ?? '""');
      return {state, picture: await response.blob(), reason, timecode};
    }
    if (response.status !== 403)
      return {state, picture: null, reason: await response.text(), timecode};
  } catch {
    // It is gone.
  }
  const reason = "moravel-play has ended. Start it again, and open the address that it prints then.";
  return {state: "gone", picture: null, reason, timecode: ""};
}

export async function fetchJson(name) {
  const response = await fetch(name);
  if (!response.ok)
    throw new Error(await response.text());
  return response.json();
}

// Shows the newest of the positions that it is given, as fast as they can be had: while some are
// under way it remembers only the last one.
export class Shower {
  static mostUnderWay = 3;

  // `make(position)` is the order for a position, `take(position, answer, bitmap, since)` gets what
  // came; since: when the position was asked for.
  constructor(make, take) {
    this.make = make;
    this.take = take;
    this.generation = 0;
    this.shown = 0;
    this.underWay = 0;
    this.waiting = null;
  }

  show(position) {
    clearTimeout(this.retry);
    this.waiting = {position, since: performance.now()};
    this.send();
  }

  // Makes what is under way come too late; returns the generation of what is ordered from now on.
  supersede() {
    clearTimeout(this.retry);
    this.waiting = null;
    this.shown = ++this.generation;
    return this.generation;
  }

  async send() {
    if (this.waiting === null || this.underWay >= Shower.mostUnderWay)
      return;
    const {position, since} = this.waiting;
    this.waiting = null;
    const generation = ++this.generation;
    ++this.underWay;
    const answer = await fetchPicture({...this.make(position), kind: "show", lane: "picture", generation});
    --this.underWay;
    this.send();
    if (generation <= this.shown || answer.state === "stale")
      return;
    const bitmap = answer.picture && await createImageBitmap(answer.picture);
    if (generation > this.shown) {  // a later one may be ready earlier
      this.shown = generation;
      this.take(position, answer, bitmap, since);
    }
    bitmap?.close();
    const failed = answer.state === "failed" || answer.state === "gone";
    if (failed && generation === this.generation)
      this.retry = setTimeout(() => this.show(position), 1000);
  }
}
