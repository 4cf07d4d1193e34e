// SPDX-License-Identifier: Apache-2.0
// Puts the page together from its data.

function spanOf([begin, end, text, finished, count, filled]) {
  return { t0: begin / 1e9, t1: end / 1e9, text, trouble: false, finished, count,
           filled: filled / 1e9 };
}

function markOf([time, text, trouble]) {
  return { t0: time / 1e9, t1: time / 1e9, text, trouble, finished: true, count: 1, filled: 0 };
}

// What is told of a span beside its time.
function addNotes(lanes, transfers) {
  for (const one of transfers) {
    const lane = lanes.find((other) => other.name === one.lane);
    const span = lane && lane.spans.find((item) => item.t0 === one.begin / 1e9 &&
                                                   item.text === one.name);
    if (!span || !one.bytes) continue;
    span.note = formatBytes(one.bytes) + ", " +
      formatRate(one.bytes / Math.max((one.end - one.begin) / 1e9, 1e-9));
  }
}

function laneOf(data) {
  return new Lane({
    name: data.name,
    group: data.group,
    what: data.what,
    spans: data.spans.map(spanOf),
    marks: data.marks.map(markOf),
    gaps: data.gap ? [{ t0: data.gap[0] / 1e9, t1: data.gap[1] / 1e9, count: data.gap[2] }] : [],
    rates: (data.rates || []).map(({ width, buckets }) => ({
      width: width / 1e9,
      buckets: buckets.map(([index, bytes, packets]) => [index * width / 1e9, bytes, packets]),
    })),
    ticks: [],
  });
}

// Warnings and worse are marks, the other lines are only counted: all of them, those too that the
// table leaves out.
function logLane(lines, { width, buckets }) {
  const lane = { name: "Log", group: "Daemon", what: "its lines; warnings and worse as marks",
                 spans: [], marks: [], gaps: [], rates: [], note: "" };
  let leftOut = 0;
  for (const [time, level, tag, text] of lines) {
    if (text === undefined) {
      leftOut += level;
    } else if (!"VDI".includes(level)) {
      const words = (LEVELS[level] || level) + ": " + text;
      lane.marks.push(markOf([time, words, true]));
    }
  }
  if (leftOut) lane.note = formatNumber(leftOut) + " more lines left out of the table";
  lane.ticks = buckets.map(([index, , count]) => ({ time: index * width / 1e9, count }));
  return new Lane(lane);
}

// Where it ended that did not pass.
function verdictLane(data) {
  return new Lane({
    name: "Verdict", group: "Trouble", what: "when the run was given up",
    spans: [], gaps: [], rates: [], ticks: [], marks: [markOf([data.end, data.why, true])],
  });
}

const GROUPS = ["Trouble", "Protocol", "Channels", "Co-processor", "Daemon"];

function makeLanes(data) {
  const lanes = data.lanes.map(laneOf);
  if (data.verdict !== "pass") lanes.unshift(verdictLane(data));
  addNotes(lanes, data.transfers);
  if (data.log.length) lanes.push(logLane(data.log, data.log_rate));
  return GROUPS.flatMap((group) => lanes.filter((lane) => lane.group === group));
}

function listenToPointer(view, picture, details) {
  const at = (event, pin) => {
    const thing = event.target.closest(".thing");
    const lane = event.target.closest(".lane");
    if (thing) return details.show(describeItems(thing.lane, thing.items),
                                   event.clientX, event.clientY, pin);
    const place = lane && describePlace(lane.lane, view, xOf(view, event));
    if (place) return details.show(place, event.clientX, event.clientY, pin);
    if (pin) return details.close();
    return details.leave();
  };
  picture.addEventListener("pointermove", (event) => {
    if (event.pointerType === "touch") return;
    view.point(xOf(view, event));
    if (event.buttons === 0) at(event, false);
  });
  picture.addEventListener("pointerleave", () => {
    byId("cursor").hidden = true;
    details.leave();
  });
  picture.addEventListener("click", (event) => at(event, true));
  picture.addEventListener("dblclick", (event) => view.zoom(2.5, xOf(view, event)));
  picture.addEventListener("wheel", (event) => onWheel(view, event), { passive: false });
}

function listenToFocus(picture, details) {
  picture.addEventListener("focusin", (event) => {
    const thing = event.target;
    if (!thing.items || !thing.matches(":focus-visible")) return;
    const box = thing.getBoundingClientRect();
    details.show(describeItems(thing.lane, thing.items), box.left, box.bottom - 10, true);
  });
  document.addEventListener("keydown", (event) => {
    if (event.key === "Escape") details.close();
  });
}

function listenToButtons(view) {
  const actions = {
    earlier: () => view.pan(-0.3),
    later: () => view.pan(0.3),
    out: () => view.zoom(1 / 1.6),
    in: () => view.zoom(1.6),
    whole: () => view.showAll(),
  };
  for (const [id, action] of Object.entries(actions)) byId(id).addEventListener("click", action);
  byId("fold").addEventListener("change", () => view.fold(byId("fold").checked));
  document.addEventListener("keydown", (event) => {
    if (!event.target.closest("input[type=search], select")) onKey(view, event);
  });
}

function start() {
  const data = JSON.parse(byId("data").textContent);
  const lanes = makeLanes(data);
  document.querySelector("main").hidden = false;
  let group = "";
  for (const lane of lanes) {
    if (lane.group !== group) byId("lanes").append(make("h3", "group", lane.group));
    group = lane.group;
    byId("lanes").append(lane.element);
  }
  drawHeader(data, lanes);
  const details = new Details(byId("details"));
  const view = new View(lanes, Math.max(data.end / 1e9, 1e-6), details);
  drawTransfers(data.transfers, view);
  drawChecks(data, lanes, view);
  new LogTable(data.log, view);
  const picture = byId("picture");
  new Dragging(view, picture);
  listenToPointer(view, picture, details);
  listenToFocus(picture, details);
  listenToButtons(view);
  view.draw();
}

start();
