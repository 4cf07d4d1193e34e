// SPDX-License-Identifier: Apache-2.0
// What stands around the timeline: the verdict, the transfers, the checks, the log.

const SIGNS = { "met": "\u2713", "failed": "\u2717", "not met": "\u2013", "not looked at": "\u2013" };

function drawHeader(data, lanes) {
  const words = { pass: "PASS", fail: "FAIL", interrupted: "INTERRUPTED" }[data.verdict];
  document.title = words + " " + data.name + " \u2013 marlo-sim";
  document.body.classList.add(data.verdict);
  byId("badge").textContent = { pass: "\u2713", fail: "\u2717", interrupted: "\u25a0" }[data.verdict];
  byId("verdict").textContent = words + " " + data.name;
  byId("why").textContent = data.verdict === "fail" ? data.why : "";
  byId("description").textContent = data.description;
  byId("command").textContent = data.command;
  byId("written").textContent = "marlo-sim, " + data.started;
  const count = (name) => {
    const lane = lanes.find((one) => one.name === name);
    return lane ? lane.marks.length + lane.gaps.reduce((sum, gap) => sum + gap.count, 0) : 0;
  };
  const unmet = [...data.steps, ...data.state, ...data.logs]
    .filter((check) => check.outcome !== "met");
  const facts = [
    ["Time", formatDuration(data.end / 1e9)],
    ["Commands", formatNumber(data.totals.commands)],
    ["Packets", formatNumber(data.totals.packets)],
    ["From the daemon", formatBytes(data.totals.from_daemon)],
    ["To the daemon", formatBytes(data.totals.to_daemon)],
    ["Faults", formatNumber(count("Faults"))],
    ["Checks not met", formatNumber(unmet.length + count("Failed checks"))],
    ["Log lines", formatNumber(data.totals.log_lines)],
  ];
  for (const [name, value] of facts) {
    const fact = make("div");
    fact.append(make("dt", "", name), make("dd", "", value));
    byId("facts").append(fact);
  }
}

// A moment that the timeline can be asked to show.
function timeButton(seconds, view) {
  const button = make("button", "when", formatTime(seconds));
  button.title = "Show in the timeline";
  button.addEventListener("click", () => {
    byId("timeline").scrollIntoView();
    view.showTime(seconds);
  });
  return button;
}

function drawTransfers(transfers, view) {
  if (!transfers.length) return;
  byId("transfers").hidden = false;
  const body = byId("transfers").querySelector("tbody");
  const rate = (one) => one.bytes / Math.max((one.end - one.begin) / 1e9, 1e-9);
  const most = Math.max(...transfers.map((one) => (one.left_out ? 0 : rate(one))));
  for (const one of transfers) {
    const row = make("tr");
    body.append(row);
    if (one.left_out) {
      const cell = make("td", "gap", formatNumber(one.left_out) + " more left out");
      cell.colSpan = 6;
      row.append(cell);
      continue;
    }
    fillTransfer(row, one, rate(one), most, view);
  }
}

function fillTransfer(row, one, rate, most, view) {
  const cell = (label, text, className = "") => {
    const element = make("td", className, text);
    element.dataset.label = label;  // where the table's head does not fit
    row.append(element);
    return element;
  };
  const name = make("th", "", one.name);
  name.scope = "row";
  row.append(name);
  cell("Size", one.size === null ? "\u2013" : formatBytes(one.size));
  cell("Sent", formatBytes(one.bytes));
  cell("Time").append(
    timeButton(one.begin / 1e9, view),
    make("span", "muted", " for " + formatDuration((one.end - one.begin) / 1e9)));
  const bar = make("div", "meter");
  bar.style.width = rate / Math.max(most, 1e-9) * 100 + "%";
  cell("Rate", one.bytes ? formatRate(rate) : "\u2013", "rate").append(bar);
  cell("State", one.finished ? "\u2713 finished" : "\u2717 not finished",
       one.finished ? "" : "trouble");
}

function checkList(title, checks, view) {
  const part = make("div", "checks");
  const met = checks.filter((check) => check.outcome === "met").length;
  const heading = make("h3", "", title + " ");
  heading.append(make("span", "muted", met + " of " + checks.length));
  const list = make("ol");
  for (const check of checks) {
    const item = make("li", check.outcome.replace(/ /g, "-"));
    const sign = make("span", "outcome", SIGNS[check.outcome]);
    sign.setAttribute("role", "img");
    sign.setAttribute("aria-label", check.outcome);
    const words = make("span", "what", check.words);
    if (check.outcome === "not looked at") words.append(make("span", "muted", " (not looked at)"));
    if (check.why) words.append(make("span", "reason", check.why));
    item.append(sign, words);
    if (check.time !== null) item.append(timeButton(check.time / 1e9, view));
    list.append(item);
  }
  part.append(heading, list);
  byId("check-lists").append(part);
}

function drawChecks(data, lanes, view) {
  const failed = lanes.find((lane) => lane.name === "Failed checks");
  if (failed) {
    checkList("Failed checks", failed.marks.map((mark) => (
      { words: mark.text, outcome: "failed", time: mark.t0 * 1e9, why: "" })), view);
  }
  if (data.steps.length) checkList("Steps, in this order", data.steps, view);
  if (data.state.length) checkList("How things were at the end", data.state, view);
  if (data.logs.length) checkList("Lines of the log", data.logs, view);
  byId("checks").hidden = byId("check-lists").childElementCount === 0;
}

const LINES_AT_ONCE = 100;
const LEVELS = { V: "verbose", D: "debug", I: "info", W: "warning", E: "error", F: "fatal",
                 "?": "no line of the log" };

class LogTable {
  // `lines`: [time, level, tag, text], or [time, number of lines left out].
  constructor(lines, view) {
    this.lines = lines;
    this.view = view;
    this.body = byId("log").querySelector("tbody");
    this.most = LINES_AT_ONCE;
    byId("log").hidden = lines.length === 0;
    for (const id of ["find", "level", "in-range"]) {
      byId(id).addEventListener("input", () => this.draw());
    }
    byId("more").addEventListener("click", () => {
      this.most += LINES_AT_ONCE * 5;
      this.draw(false);
    });
    view.listeners.push(() => {
      if (byId("in-range").checked) this.draw();
    });
    this.draw();
  }

  wanted() {
    const find = byId("find").value.toLowerCase();
    const hidden = byId("level").value ? "" : "VDI";
    const inRange = byId("in-range").checked;
    const from = inRange ? this.view.time(0) * 1e9 : -Infinity;
    const to = inRange ? this.view.time(this.view.width) * 1e9 : Infinity;
    return this.lines.filter(([time, level, tag, text]) => time >= from && time <= to &&
      (text === undefined ||
       !hidden.includes(level) && (tag + " " + text).toLowerCase().includes(find)));
  }

  draw(anew = true) {
    if (anew) this.most = LINES_AT_ONCE;
    const wanted = this.wanted();
    const shown = wanted.slice(0, this.most);
    this.body.replaceChildren(...shown.map((line) => this.row(line)));
    const number = wanted.filter((line) => line.length > 2).length;
    byId("found").textContent = formatNumber(number) + (number === 1 ? " line" : " lines");
    const more = wanted.length - shown.length;
    byId("more").hidden = more === 0;
    byId("more").textContent = "Show more (" + formatNumber(more) + " left)";
  }

  row([time, level, tag, text]) {
    if (text === undefined) {
      const row = make("tr", "gap");
      const cell = make("td", "gap", formatNumber(level) + " more lines left out");
      cell.colSpan = 3;
      row.append(cell);
      return row;
    }
    const row = make("tr", "level-" + (level === "?" ? "none" : level));
    const when = make("td");
    when.append(timeButton(time / 1e9, this.view));
    const sign = make("td", "level", level);
    sign.title = LEVELS[level] || level;
    const words = make("td", "text");
    if (tag) words.append(make("span", "muted", tag + " "));
    words.append(text);
    row.append(when, sign, words);
    return row;
  }
}
