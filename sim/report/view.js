// SPDX-License-Identifier: Apache-2.0
// The part of the run that the timeline shows, and how it is moved: keys, wheel, fingers, buttons.

const LEAST_UNITS = 2e-6;
const TICKS_APART = 92;  // pixels
const CHARACTER = 7.3;   // pixels of the axis' texts

class View {
  constructor(lanes, end, details) {
    this.lanes = lanes;
    this.details = details;
    this.end = end;
    this.listeners = [];
    this.times = lanes.flatMap((lane) => lane.times());
    this.axisTrack = byId("axis").querySelector(".track");
    this.fold(true);
    new ResizeObserver(() => this.draw()).observe(this.axisTrack);
  }

  // The same time stays in sight.
  fold(folding) {
    const shown = this.axis && !this.whole ? [this.time(0), this.time(this.width)] : null;
    this.axis = new Axis(this.times, this.end, folding);
    for (const lane of this.lanes) lane.lay(this.axis);
    const [from, to] = shown ? shown.map((time) => this.axis.toUnits(time)) : [0, 0];
    this.show(from, to > from ? to : this.axis.length);
  }

  x(units) { return (units - this.from) / (this.to - this.from) * this.width; }
  units(x) { return this.from + x / this.width * (this.to - this.from); }
  time(x) { return this.axis.toTime(this.units(x)); }
  get whole() { return this.from <= 0 && this.to >= this.axis.length; }

  show(from, to) {
    const length = this.axis.length;
    const size = Math.min(Math.max(to - from, Math.min(LEAST_UNITS, length)), length);
    this.from = Math.min(Math.max((from + to - size) / 2, 0), length - size);
    this.to = this.from + size;
    this.draw();
  }

  zoom(factor, x = this.width / 2) {
    const at = this.units(x);
    const size = Math.min((this.to - this.from) / factor, this.axis.length);
    const from = at - x / this.width * size;
    this.show(from, from + size);
  }

  pan(share) {
    const by = Math.min(Math.max(share * (this.to - this.from), -this.from),
                        this.axis.length - this.to);
    this.show(this.from + by, this.to + by);
  }

  showAll() { this.show(0, this.axis.length); }

  // Brings a time into sight, at a scale at which it can be told from its neighbours.
  showTime(time) {
    const at = this.axis.toUnits(time);
    const half = Math.min(this.to - this.from, this.axis.length / 6) / 2;
    this.show(at - half, at + half);
    this.point(this.x(this.axis.toUnits(time)));
  }

  draw() {
    this.width = Math.max(this.axisTrack.clientWidth, 1);
    const focused = document.activeElement;
    const kept = focused && focused.items ? focused : null;
    for (const lane of this.lanes) lane.draw(this);
    this.drawTicks();
    this.drawFolds();
    const bar = byId("window").style;
    bar.left = this.from / this.axis.length * 100 + "%";
    bar.width = (this.to - this.from) / this.axis.length * 100 + "%";
    byId("range").textContent = formatTime(this.time(0), this.step) + " \u2013 " +
      formatTime(this.time(this.width), this.step);
    byId("cursor").hidden = true;
    if (kept) (findThing(kept.lane, kept.items[0]) || kept.lane.element).focus({ preventScroll: true });
    for (const listener of this.listeners) listener();
  }

  drawTicks() {
    this.axisTrack.replaceChildren();
    this.step = Math.max(this.end, 1e-6);
    this.free = -Infinity;  // from where on there is room for a text
    const folds = this.axis.pieces.filter((piece) => piece.folded);
    let before = -Infinity;
    for (const fold of folds) before = this.layFold(fold, before);
    for (const piece of this.axis.pieces) {
      if (piece.folded) {
        this.free = Math.max(this.free, piece.textEnd);
      } else {
        const next = folds.find((fold) => fold.t0 >= piece.t1);
        this.drawPiece(piece, next ? next.textBegin : this.width + 8);
      }
    }
  }

  // Its text, where there is room for it; `free`: from where on. Says the same for the next one.
  layFold(fold, free) {
    const x0 = this.x(fold.u0);
    const x1 = this.x(fold.u1);
    const text = formatDuration(fold.t1 - fold.t0);
    const width = text.length * CHARACTER + 8;
    const begin = (x0 + x1 - width) / 2;
    const shown = begin > free && x1 > 0 && x0 < this.width && width < 2.6 * (x1 - x0);
    fold.textBegin = shown ? begin : x0;
    fold.textEnd = shown ? fold.textBegin + width : x1;
    if (shown) this.axisText(fold.textBegin, text, "folded");
    return fold.textEnd;
  }

  drawPiece(piece, limit) {
    const perSecond = (this.x(piece.u1) - this.x(piece.u0)) / (piece.t1 - piece.t0);
    const from = Math.max(piece.t0, this.time(0));
    const to = Math.min(piece.t1, this.time(this.width));
    if (to <= from) return;
    const step = niceStep(TICKS_APART / perSecond);
    this.step = Math.min(this.step, step);
    for (let i = Math.ceil(from / step - 1e-6); i * step <= to + step * 1e-6; ++i) {
      const x = this.x(this.axis.toUnits(i * step));
      const text = formatTime(i * step, step);
      const end = x + 8 + text.length * CHARACTER;
      if (x < this.free || end > limit) continue;
      this.axisText(x, text, "time");
      this.free = end;
    }
  }

  axisText(x, text, className) {
    const element = make("div", className, text);
    element.style.left = x + "px";
    this.axisTrack.append(element);
  }

  // What goes through all lanes: folds, and where there was trouble.
  drawFolds() {
    const folds = byId("folds");
    folds.replaceChildren();
    folds.style.left = this.axisTrack.offsetLeft + "px";
    const add = (className, x0, x1) => {
      if (x1 < 0 || x0 > this.width) return;
      const element = make("div", className);
      element.style.left = Math.max(x0, 0) + "px";
      element.style.width = Math.min(x1, this.width) - Math.max(x0, 0) + "px";
      folds.append(element);
    };
    for (const piece of this.axis.pieces) {
      if (piece.folded) add("fold", this.x(piece.u0), this.x(piece.u1));
    }
    const troubles = this.lanes.filter((lane) => lane.group === "Trouble");
    for (const group of troubles.flatMap((lane) => groupMarks(lane.marks, this))) {
      add("trouble-line", group.x0 + 7, group.x0 + 7);
    }
  }

  // The line through all lanes.
  point(x) {
    const cursor = byId("cursor");
    cursor.hidden = x < 0 || x > this.width;
    cursor.style.left = this.axisTrack.offsetLeft + x + "px";
    cursor.firstChild.textContent = formatTime(this.time(x), Math.max(this.step / 100, 1e-9));
    cursor.classList.toggle("left", x > this.width / 2);
  }
}

function findThing(lane, item) {
  return Array.from(lane.track.querySelectorAll(".thing")).find((t) => t.items.includes(item));
}

// From mark to mark, in whatever grouping they are drawn.
function stepThing(view, lane, thing, by) {
  const shown = Array.from(lane.track.querySelectorAll(".thing"))
    .sort((a, b) => a.items[0].t0 - b.items[0].t0);
  const at = thing ? shown.indexOf(thing) + by : by > 0 ? 0 : shown.length - 1;
  if (shown[at]) return shown[at].focus({ preventScroll: true });
  const edge = thing ? thing.items[by > 0 ? thing.items.length - 1 : 0] : null;
  const item = lane.items[edge ? lane.items.indexOf(edge) + by : by > 0 ? 0 : lane.items.length - 1];
  if (!item) return;
  const half = (view.to - view.from) / 2;
  view.show(item.u0 - half, item.u0 + half);
  const found = findThing(lane, item);
  if (found) found.focus({ preventScroll: true });
}

function onKey(view, event) {
  if (event.ctrlKey || event.metaKey || event.altKey) return;
  const lane = event.target.lane;
  const thing = event.target.items ? event.target : null;
  const centre = thing ? view.x(thing.items[0].u0) : view.width / 2;  // what has the focus stays
  const beside = (by) => {
    const next = view.lanes[view.lanes.indexOf(lane) + by];
    if (next) next.element.focus();
  };
  const actions = {
    ArrowLeft: () => view.pan(-0.15),
    ArrowRight: () => view.pan(0.15),
    "+": () => view.zoom(1.6, centre),
    "=": () => view.zoom(1.6, centre),
    "-": () => view.zoom(1 / 1.6, centre),
    0: () => view.showAll(),
    ArrowUp: () => beside(-1),
    ArrowDown: () => beside(1),
    ",": () => stepThing(view, lane, thing, -1),
    ".": () => stepThing(view, lane, thing, 1),
  };
  const needsLane = ["ArrowUp", "ArrowDown", ",", "."].includes(event.key);
  if (!actions[event.key] || needsLane && !lane) return;
  event.preventDefault();
  actions[event.key]();
}

function onWheel(view, event) {
  const sideways = Math.abs(event.deltaX) > Math.abs(event.deltaY) || event.shiftKey;
  const delta = sideways ? event.deltaX || event.deltaY : event.deltaY;
  // All is in sight, and it goes on outwards: the page scrolls.
  if (!sideways && delta > 0 && view.whole && !event.ctrlKey) return;
  if (sideways && view.whole) return;
  event.preventDefault();
  const pixels = delta * (event.deltaMode === 1 ? 16 : 1);
  if (sideways) return view.pan(pixels / view.width);
  view.zoom(Math.exp(-pixels * (event.ctrlKey ? 0.01 : 0.002)), xOf(view, event));
}

function xOf(view, event) {
  return event.clientX - view.axisTrack.getBoundingClientRect().left;
}

// One finger or the mouse moves, two fingers zoom as well.
class Dragging {
  constructor(view, element) {
    this.view = view;
    this.points = new Map();
    element.addEventListener("pointerdown", (event) => {
      if (event.button === 0) this.points.set(event.pointerId, xOf(view, event));
      this.moved = false;
    });
    window.addEventListener("pointermove", (event) => this.move(event));
    for (const name of ["pointerup", "pointercancel"]) {
      window.addEventListener(name, (event) => this.points.delete(event.pointerId));
    }
    // A drag is no click on what it ends at.
    element.addEventListener("click", (event) => {
      if (this.moved) event.stopPropagation();
    }, true);
  }

  move(event) {
    if (!this.points.has(event.pointerId)) return;
    const before = Array.from(this.points.values());
    const x = xOf(this.view, event);
    if (this.points.size === 1 && !this.moved && Math.abs(x - before[0]) < 4) return;
    this.moved = true;
    this.points.set(event.pointerId, x);
    const after = Array.from(this.points.values());
    const middle = (all) => all.reduce((sum, one) => sum + one, 0) / all.length;
    this.view.pan((middle(before) - middle(after)) / this.view.width);
    if (after.length !== 2) return;
    const size = (all) => Math.max(Math.abs(all[0] - all[1]), 8);
    this.view.zoom(size(after) / size(before), middle(after));
  }
}
