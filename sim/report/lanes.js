// SPDX-License-Identifier: Apache-2.0
// One lane of the timeline: its name, and up to three rows: a chart of rates, spans, and marks.

const NARROW = 4;    // pixels: spans that are narrower are drawn as one with those beside them
const MARK = 14;     // pixels that a mark takes up
const LABEL = 44;    // pixels from which on there is room for words beside a mark
const SVG = "http://www.w3.org/2000/svg";

class Lane {
  // `data`: { name, group, what, note, spans, marks, gaps, rates, ticks }
  constructor(data) {
    Object.assign(this, data);
    this.items = this.spans.concat(this.marks).sort((a, b) => a.t0 - b.t0);
    this.element = make("div", "lane " + this.group.toLowerCase());
    this.element.tabIndex = 0;
    this.element.setAttribute("role", "group");
    this.element.setAttribute("aria-label", this.summary());
    const name = make("div", "name", this.name);
    if (this.note) name.append(make("div", "note", this.note));
    this.element.append(name);
    this.track = make("div", "track");
    this.element.append(this.track);
    this.rows = {};
    for (const kind of ["rates", "ticks", "spans", "marks"]) {
      if (!this[kind].length) continue;
      this.rows[kind] = make("div", "row " + kind);
      this.track.append(this.rows[kind]);
    }
    this.element.lane = this;
  }

  summary() {
    const parts = [];
    const tell = (list, one, more) => {
      if (list.length) parts.push(formatNumber(list.length) + " " + (list.length > 1 ? more : one));
    };
    tell(this.spans, "span", "spans");
    tell(this.marks, "mark", "marks");
    return this.name + ": " + this.what + (parts.length ? "; " : "") + parts.join(", ");
  }

  // Every time at which there is something.
  times() {
    const all = this.ticks.map((tick) => tick.time);
    for (const item of this.items) all.push(item.t0, item.t1);
    for (const rate of this.rates) {
      for (const bucket of rate.buckets) all.push(bucket[0], bucket[0] + rate.width);
    }
    return all;
  }

  lay(axis) {
    for (const item of this.items) {
      item.u0 = axis.toUnits(item.t0);
      item.u1 = axis.toUnits(item.t1);
    }
    for (const gap of this.gaps) {
      gap.u0 = axis.toUnits(gap.t0);
      gap.u1 = axis.toUnits(gap.t1);
    }
    for (const tick of this.ticks) tick.u = axis.toUnits(tick.time);
  }

  draw(view) {
    for (const row of Object.values(this.rows)) row.replaceChildren();
    if (this.rows.rates) drawRates(this, view);
    if (this.rows.ticks) drawTicks(this, view);
    if (this.rows.spans) this.drawSpans(view);
    if (this.rows.marks) this.drawMarks(view);
    this.drawGaps(view);
  }

  drawSpans(view) {
    const groups = groupSpans(this.spans, view);
    for (const group of groups) {
      const thing = this.thing(group, "span");
      const x0 = Math.max(group.x0, -2);
      const width = Math.max(Math.min(group.x1, view.width + 2) - x0, 2);
      thing.style.left = x0 + "px";
      thing.style.width = width + "px";
      const many = group.items.length > 1 || group.items[0].count > 1;
      if (many) thing.classList.add("many");
      if (group.items.some((item) => !item.finished)) thing.classList.add("cut");
      if (group.items[0].text === "hung up") thing.classList.add("down");
      const text = this.spanText(group);
      if (width > 16 + 7 * Math.min(text.length, 4)) thing.textContent = text;
      this.rows.spans.append(thing);
    }
  }

  spanText(group) {
    const count = group.items.reduce((sum, item) => sum + item.count, 0);
    if (count === 1) return group.items[0].text;
    return "\u00d7" + formatNumber(count);
  }

  drawMarks(view) {
    const groups = groupMarks(this.marks, view);
    let free = 0;
    groups.forEach((group, index) => {
      const thing = this.thing(group, "mark");
      const next = index + 1 < groups.length ? groups[index + 1].x0 : view.width;
      const one = group.items.length === 1;
      let room = next - group.x0 - MARK - 4;
      if (one && room <= LABEL && group.x0 - free > 3 * LABEL) {
        room = group.x0 - free - MARK;
        thing.classList.add("backwards");
      }
      const sign = one ? (group.trouble ? "!" : "") : formatNumber(group.items.length);
      thing.append(make("span", one ? "sign" : "sign number", sign));
      if (one && room > LABEL) {
        const words = make("span", "words", group.items[0].text);
        words.style.maxWidth = room + "px";
        thing.append(words);
        free = group.x0 + MARK + Math.min(room, group.items[0].text.length * 7);
      } else {
        free = group.x0 + 2 * MARK;
      }
      thing.style.left = group.x0 + "px";
      this.rows.marks.append(thing);
    });
  }

  // What is drawn for a group of items; it knows them.
  thing(group, kind) {
    const thing = make("div", "thing " + kind + (group.trouble ? " trouble" : ""));
    thing.tabIndex = -1;
    thing.setAttribute("role", "img");
    const content = describeItems(this, group.items);
    thing.setAttribute("aria-label", content.title + ", " + content.lines.join(", "));
    thing.items = group.items;
    thing.lane = this;
    return thing;
  }

  drawGaps(view) {
    for (const gap of this.gaps) {
      const x0 = Math.max(view.x(gap.u0), 0);
      const x1 = Math.min(view.x(gap.u1), view.width);
      if (x1 < 0 || x0 > view.width) continue;
      const text = formatNumber(gap.count) + " more left out";
      const element = make("div", "left-out", x1 - x0 > 90 ? text : "");
      element.title = text;
      element.style.left = x0 + "px";
      element.style.width = Math.max(x1 - x0, 3) + "px";
      this.rows.marks.append(element);
    }
  }
}

// What of it can be seen; what is too narrow to be told apart is one group.
function groupSpans(spans, view) {
  const groups = [];
  for (const item of spans) {
    const x0 = view.x(item.u0);
    const x1 = view.x(item.u1);
    if (x1 < 0 || x0 > view.width) continue;
    const last = groups[groups.length - 1];
    const joins = last && x0 - last.x1 < 2 && (x1 - x0 < NARROW && last.x1 - last.x0 < NARROW ||
                                               last.narrow && x1 - x0 < NARROW);
    if (joins) {
      last.items.push(item);
      last.x1 = Math.max(last.x1, x1);
    } else {
      groups.push({ items: [item], x0, x1, trouble: false, narrow: x1 - x0 < NARROW });
    }
  }
  return groups;
}

function groupMarks(marks, view) {
  const groups = [];
  for (const item of marks) {
    const x0 = view.x(item.u0);
    if (x0 < 0 || x0 > view.width) continue;
    const last = groups[groups.length - 1];
    if (last && x0 - last.x0 < MARK + (last.items.length > 1 ? 14 : 0)) {
      last.items.push(item);
      last.trouble = last.trouble || item.trouble;
    } else {
      groups.push({ items: [item], x0, trouble: item.trouble });
    }
  }
  return groups;
}

function shape(row, tag, attributes) {
  const element = document.createElementNS(SVG, tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  row.append(element);
  return element;
}

// Bytes per column of three pixels: what the daemon sends goes up, what it is sent goes down.
const COLUMN = 3;

function columnsOf(rate, view) {
  const columns = new Map();
  for (const [time, bytes, packets] of rate.buckets) {
    const x = view.x(view.axis.toUnits(time));
    const end = view.x(view.axis.toUnits(time + rate.width));
    if (end < 0 || x > view.width) continue;
    const first = Math.floor(x / COLUMN);
    const last = Math.max(Math.ceil(end / COLUMN) - 1, first);
    // A bucket that is wider than a column spreads over several.
    for (let at = Math.max(first, 0); at <= last && at * COLUMN <= view.width; ++at) {
      const column = columns.get(at) || { bytes: 0, packets: 0 };
      column.bytes += bytes / (last - first + 1);
      column.packets += packets / (last - first + 1);
      columns.set(at, column);
    }
  }
  const seconds = (at) => Math.max(view.time((at + 1) * COLUMN) - view.time(at * COLUMN), 1e-9);
  for (const [at, column] of columns) column.rate = column.bytes / seconds(at);
  return columns;
}

function drawRates(lane, view) {
  const row = lane.rows.rates;
  const svg = shape(row, "svg", { width: view.width, height: 44, "aria-hidden": "true" });
  lane.columns = lane.rates.map((rate) => columnsOf(rate, view));
  const peak = Math.max(1, ...lane.columns.flatMap((c) => Array.from(c.values(), (v) => v.rate)));
  lane.columns.forEach((columns, downwards) => {
    let path = "";
    for (const [at, column] of columns) {
      const height = Math.max(Math.sqrt(column.rate / peak) * (downwards ? 14 : 27), 1);
      const y = downwards ? 29 : 28 - height;
      path += `M${at * COLUMN} ${y.toFixed(1)}h${COLUMN}v${height.toFixed(1)}h-${COLUMN}z`;
    }
    shape(svg, "path", { d: path, class: downwards ? "to-daemon" : "from-daemon" });
  });
  shape(svg, "path", { d: `M0 28.5H${view.width}`, class: "zero" });
  if (peak > 1) row.append(make("span", "peak", "peak " + formatRate(peak)));
}

function drawTicks(lane, view) {
  const svg = shape(lane.rows.ticks, "svg", { width: view.width, height: 18,
                                              "aria-hidden": "true" });
  const counts = new Map();
  for (const tick of lane.ticks) {
    const x = Math.round(view.x(tick.u) / 2) * 2;
    if (x >= 0 && x <= view.width) counts.set(x, (counts.get(x) || 0) + tick.count);
  }
  const most = Math.max(1, ...counts.values());
  let path = "";
  for (const [x, count] of counts) {
    const height = 4 + 12 * Math.sqrt(count / most);
    path += `M${x} ${(17 - height).toFixed(1)}h1v${height.toFixed(1)}h-1z`;
  }
  shape(svg, "path", { d: path, class: "tick" });
}

// What is under the pointer where no thing is; null: nothing.
function describePlace(lane, view, x) {
  const lines = [];
  const at = Math.floor(x / COLUMN);
  (lane.columns || []).forEach((columns, toDaemon) => {
    const near = [at, at - 1, at + 1].map((c) => columns.get(c)).find((c) => c);
    if (!near) return;
    lines.push((toDaemon ? "\u2193 to the daemon " : "\u2191 from the daemon ") +
               formatRate(near.rate) + ", " + formatBytes(Math.round(near.bytes)));
  });
  const near = lane.ticks.filter((tick) => Math.abs(view.x(tick.u) - x) < 2)
    .reduce((sum, tick) => sum + tick.count, 0);
  if (near) lines.push(formatNumber(near) + (near > 1 ? " lines" : " line") + " of the log");
  return lines.length ? { title: lane.name + " at " + formatTime(view.time(x)), lines } : null;
}
