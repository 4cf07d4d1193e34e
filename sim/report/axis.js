// SPDX-License-Identifier: Apache-2.0
"use strict";
// Time along the picture. A quiet stretch may be folded: it then takes up a little room, however
// long it is. Times are seconds; units are what the picture is drawn in: a second that is not
// folded is one unit.

const FOLD_LEAST = 0.02;  // seconds
const FOLD_SHARE = 0.04;  // of the run
const FOLDS_MOST = 25;
const END_ROOM = 0.03;  // behind the end, for what happens there

// The longest stretches without anything between `times`, in order.
function quietStretches(times, end) {
  const all = Array.from(new Set([0, ...times, end])).sort((a, b) => a - b);
  const least = Math.max(FOLD_LEAST, end * FOLD_SHARE);
  const gaps = [];
  for (let i = 1; i < all.length; ++i) {
    if (all[i] - all[i - 1] >= least) gaps.push([all[i - 1], all[i]]);
  }
  gaps.sort((a, b) => (b[1] - b[0]) - (a[1] - a[0]));
  return gaps.slice(0, FOLDS_MOST).sort((a, b) => a[0] - b[0]);
}

class Axis {
  constructor(times, end, folding) {
    const gaps = folding ? quietStretches(times, end) : [];
    const quiet = gaps.reduce((sum, gap) => sum + gap[1] - gap[0], 0);
    const busy = Math.max(end - quiet, end / 1000, 1e-6);
    const width = Math.min(busy * 0.06, busy * 0.6 / Math.max(gaps.length, 1));
    const margin = busy * 0.015;  // of the quiet on either side, so that marks have room
    this.end = end;
    this.pieces = [];
    let time = 0;
    let units = 0;
    const add = (until, size, folded) => {
      if (until <= time) return;
      this.pieces.push({ t0: time, t1: until, u0: units, u1: units + size, folded });
      time = until;
      units += size;
    };
    for (const [from, to] of gaps) {
      const side = Math.min(margin, (to - from) / 4);
      add(from + side, from + side - time, false);
      add(to - side, width, true);
    }
    add(Math.max(end, 1e-6), Math.max(end, 1e-6) - time, false);
    this.length = units * (1 + END_ROOM);
  }

  toUnits(time) {
    const piece = this.pieces.find((p) => time <= p.t1) || this.pieces[this.pieces.length - 1];
    const share = (time - piece.t0) / (piece.t1 - piece.t0);
    return piece.u0 + Math.min(Math.max(share, 0), 1) * (piece.u1 - piece.u0);
  }

  toTime(units) {
    const piece = this.pieces.find((p) => units <= p.u1) || this.pieces[this.pieces.length - 1];
    const share = (units - piece.u0) / (piece.u1 - piece.u0);
    return piece.t0 + Math.min(Math.max(share, 0), 1) * (piece.t1 - piece.t0);
  }
}

// The least of 1, 2, 5, 10, 20 ... times a power of ten that is not below `least`.
function niceStep(least) {
  const power = Math.pow(10, Math.floor(Math.log10(least)));
  return [1, 2, 5, 10].map((factor) => factor * power).find((step) => step >= least * 0.9999);
}

function formatNumber(number) {
  return number.toLocaleString("en-US");
}

// `step`: what must be told apart.
function formatTime(seconds, step = 1e-6) {
  const digits = Math.min(Math.max(-Math.floor(Math.log10(step) + 1e-9), 0), 9);
  return seconds.toFixed(digits) + " s";
}

function formatDuration(seconds) {
  if (seconds >= 120) return (seconds / 60).toFixed(1) + " min";
  if (seconds >= 1) return seconds.toFixed(seconds < 10 ? 2 : 1) + " s";
  if (seconds >= 1e-3) return (seconds * 1e3).toFixed(seconds < 1e-2 ? 2 : 1) + " ms";
  return (seconds * 1e6).toFixed(0) + " \u00b5s";
}

function formatBytes(bytes) {
  return formatNumber(bytes) + (bytes === 1 ? " byte" : " bytes");
}

function formatRate(perSecond) {
  if (perSecond >= 1e6) return (perSecond / 1e6).toFixed(1) + " MB/s";
  if (perSecond >= 1e3) return (perSecond / 1e3).toFixed(1) + " kB/s";
  return perSecond.toFixed(0) + " B/s";
}

// An element; text is only ever text.
function make(tag, className, text) {
  const element = document.createElement(tag);
  if (className) element.className = className;
  if (text !== undefined) element.textContent = text;
  return element;
}

function byId(id) {
  return document.getElementById(id);
}
