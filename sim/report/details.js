// SPDX-License-Identifier: Apache-2.0
// What the pointer or the focus is on, in words. A click or the focus keeps it open until Esc.

class Details {
  constructor(element) {
    this.element = element;
    this.pinned = false;
    // Whoever reads in it goes on reading.
    element.addEventListener("pointerenter", () => { this.inside = true; });
    element.addEventListener("pointerleave", () => { this.inside = false; this.leave(); });
  }

  // `content`: { title, lines: [text], trouble }; `x`, `y`: in the window.
  show(content, x, y, pin = false) {
    if (this.pinned && !pin) return;
    this.pinned = pin;
    const title = make("strong", content.trouble ? "trouble" : "", content.title);
    this.element.replaceChildren(title, ...content.lines.map((line) => make("div", "", line)));
    this.element.hidden = false;
    this.place(x, y);
  }

  place(x, y) {
    const style = this.element.style;
    const narrow = window.innerWidth < 640;  // it lies along the bottom then
    const box = this.element.getBoundingClientRect();
    const left = Math.min(x + 14, window.innerWidth - box.width - 8);
    const below = y + 18 + box.height < window.innerHeight;
    style.left = narrow ? "" : Math.max(left, 8) + "px";
    style.top = narrow ? "" : Math.max(below ? y + 18 : y - box.height - 14, 8) + "px";
  }

  leave() {
    if (!this.pinned && !this.inside) this.element.hidden = true;
  }

  close() {
    this.pinned = false;
    this.inside = false;
    this.element.hidden = true;
  }
}

const KINDS_SHOWN = 8;

function describeOne(lane, item) {
  const lines = [];
  if (item.t1 > item.t0) {
    lines.push(formatTime(item.t0) + " \u2013 " + formatTime(item.t1));
    lines.push("for " + formatDuration(item.t1 - item.t0));
  } else {
    lines.push("at " + formatTime(item.t0));
  }
  if (item.count > 1) {
    lines.push(formatNumber(item.count) + " close to each other, together " +
               formatDuration(item.filled));
  }
  if (item.note) lines.push(item.note);
  if (!item.finished) lines.push("not finished");
  lines.push(lane.name + ": " + lane.what);
  return { title: item.text, lines, trouble: item.trouble };
}

function describeMany(lane, items) {
  const lines = items.slice(0, KINDS_SHOWN).map(
    (item) => formatTime(item.t0) + "  " + item.text);
  if (items.length > KINDS_SHOWN) {
    lines.push("and " + formatNumber(items.length - KINDS_SHOWN) + " more: zoom in");
  }
  return {
    title: lane.name + ": " +
      formatNumber(items.reduce((sum, item) => sum + item.count, 0)) + " in " +
      formatDuration(items[items.length - 1].t1 - items[0].t0),
    lines,
    trouble: items.some((item) => item.trouble),
  };
}

function describeItems(lane, items) {
  return items.length === 1 ? describeOne(lane, items[0]) : describeMany(lane, items);
}
