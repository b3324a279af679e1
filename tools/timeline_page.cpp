#include "tools/timeline_page.h"

#include <string_view>

namespace dravix::cli {
namespace {

constexpr std::string_view kHead = R"HTML(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; img-src data:; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<title>Recordings timeline</title>
<style>
  :root { --lane: 34px; --label: 84px; font: 13px/1.35 system-ui, sans-serif; color: #1d232a; }
  body { margin: 0; background: #f4f6f8; }
  header { display: flex; flex-wrap: wrap; align-items: center; gap: 6px 12px; padding: 10px 14px; background: #1d2b3a; color: #fff; }
  header h1 { font-size: 15px; margin: 0 12px 0 0; font-weight: 600; }
  header .folder { opacity: .75; font-family: ui-monospace, monospace; }
  header button { font: inherit; padding: 3px 9px; border: 1px solid #5d7187; border-radius: 4px; background: #2c4158; color: #fff; cursor: pointer; }
  header button:hover { background: #3b5675; }
  #range { font-family: ui-monospace, monospace; margin-left: auto; }
  main { padding: 8px 14px; }
  #axis { position: relative; height: 22px; margin-left: var(--label); border-bottom: 1px solid #9aa7b4; overflow: hidden; }
  .tick { position: absolute; top: 0; height: 22px; border-left: 1px solid #b7c1cb; padding-left: 3px; font-size: 11px; white-space: nowrap; color: #4a5663; }
  .lane { display: flex; height: var(--lane); border-bottom: 1px solid #dde3e9; }
  .lane .label { width: var(--label); flex: none; display: flex; align-items: center; font-weight: 600; }
  .track { position: relative; flex: auto; overflow: hidden; background: #fff; cursor: grab; }
  .track.dragging { cursor: grabbing; }
  .bar { position: absolute; top: 6px; height: calc(var(--lane) - 13px); min-width: 1px; border-radius: 2px; cursor: pointer; }
  .bar.intact { background: #2e8b57; }
  .bar.damaged { background: #d9822b; }
  .bar.being-written { background: #2f73c9; }
  .bar.selected { outline: 2px solid #111; z-index: 2; }
  .gap { position: absolute; top: 2px; bottom: 2px; background: repeating-linear-gradient(135deg, rgba(200,40,40,.20) 0 4px, rgba(200,40,40,.05) 4px 8px); border-left: 1px solid rgba(200,40,40,.5); border-right: 1px solid rgba(200,40,40,.5); }
  .gap.schedule { background: repeating-linear-gradient(135deg, rgba(120,120,120,.18) 0 4px, rgba(120,120,120,.04) 4px 8px); border-color: rgba(120,120,120,.4); }
  .gap.damaged { background: repeating-linear-gradient(135deg, rgba(217,130,43,.3) 0 4px, rgba(217,130,43,.06) 4px 8px); }
  .selection { position: absolute; top: 0; bottom: 0; background: rgba(47,115,201,.18); border: 1px dashed #2f73c9; pointer-events: none; }
  #legend { display: flex; flex-wrap: wrap; gap: 14px; margin: 10px 0 0 var(--label); color: #4a5663; }
  #legend span::before { content: ""; display: inline-block; width: 12px; height: 10px; margin-right: 5px; vertical-align: -1px; border-radius: 2px; background: var(--c); }
  #details { margin: 14px 0 0 var(--label); padding: 12px 14px; background: #fff; border: 1px solid #d4dbe2; border-radius: 6px; display: flex; gap: 18px; flex-wrap: wrap; }
  #details:empty { display: none; }
  #details table { border-collapse: collapse; }
  #details td { padding: 1px 10px 1px 0; vertical-align: top; }
  #details td:first-child { color: #5d6975; }
  #details img { max-width: 240px; border: 1px solid #ccd; }
  #details .command { flex-basis: 100%; display: flex; gap: 8px; align-items: flex-start; }
  #details textarea { flex: auto; font: 12px ui-monospace, monospace; height: 3.2em; resize: vertical; }
  .hint { color: #5d6975; margin: 8px 0 0 var(--label); }
</style>
</head>
<body>
<header>
  <h1>Recordings timeline</h1><span class="folder" id="folder"></span>
  <button data-zoom="fit">Fit</button><button data-zoom="604800000">Week</button><button data-zoom="86400000">Day</button><button data-zoom="3600000">Hour</button><button data-zoom="60000">Minute</button>
  <button data-pan="-0.5" title="Earlier">&#9664;</button><button data-pan="0.5" title="Later">&#9654;</button>
  <span id="range"></span>
</header>
<main>
  <div id="axis"></div>
  <div id="lanes"></div>
  <div id="legend"></div>
  <p class="hint">Wheel: zoom. Drag: move. Shift+drag in a lane: select a range to export. Click a recording for its details.</p>
  <div id="details"></div>
</main>
<script type="application/json" id="model">)HTML";

constexpr std::string_view kTail = R"HTML(</script>
<script>
"use strict";
(() => {
  const model = JSON.parse(document.getElementById("model").textContent);
  const MINUTE = 60000, DAY = 86400000, WEEK = 7 * DAY;
  const STATES = { "intact": "#2e8b57", "damaged": "#d9822b", "being written": "#2f73c9" };
  const CAUSES = { "schedule": "outside the schedule", "offline": "source offline", "disk full": "disk full",
                   "recycled": "recycled", "damaged": "damaged tail", "unknown": "unknown" };
  const cls = s => s.replace(/ /g, "-");
  const pad = (n, w = 2) => String(n).padStart(w, "0");
  // Times are the recorder's local wall clock, carried as UTC milliseconds.
  const fmt = (ms, withMs) => {
    const d = new Date(ms);
    const s = `${d.getUTCFullYear()}-${pad(d.getUTCMonth() + 1)}-${pad(d.getUTCDate())} ` +
              `${pad(d.getUTCHours())}:${pad(d.getUTCMinutes())}:${pad(d.getUTCSeconds())}`;
    return withMs ? `${s}.${pad(d.getUTCMilliseconds(), 3)}` : s;
  };
  const span = ms => {
    const s = Math.round(ms / 1000);
    const h = Math.floor(s / 3600), m = Math.floor(s / 60) % 60;
    return h ? `${h} h ${pad(m)} min` : m ? `${m} min ${pad(s % 60)} s` : `${s} s`;
  };
  const quote = s => "'" + String(s).replace(/'/g, "'\\''") + "'";
  const el = (tag, props = {}, text) => {
    const e = document.createElement(tag);
    Object.assign(e, props);
    if (text !== undefined) e.textContent = text;
    return e;
  };

  document.getElementById("folder").textContent = model.folder;
  const lanes = new Map(model.cameras.map(c => [c, { files: [], gaps: [], longest: 0, track: null }]));
  model.files.forEach((f, index) => {
    if (f.start_ms === null || !lanes.has(f.camera)) return;
    const lane = lanes.get(f.camera);
    lane.files.push({ ...f, index });
    lane.longest = Math.max(lane.longest, f.end_ms - f.start_ms);
  });
  let longestGap = 0;
  for (const g of model.gaps) {
    if (!lanes.has(g.camera)) continue;
    lanes.get(g.camera).gaps.push(g);
    longestGap = Math.max(longestGap, g.end_ms - g.start_ms);
  }
  for (const lane of lanes.values()) {
    lane.files.sort((a, b) => a.start_ms - b.start_ms);
    lane.gaps.sort((a, b) => a.start_ms - b.start_ms);
  }

  let lo = Infinity, hi = -Infinity;
  for (const lane of lanes.values())
    for (const f of lane.files) { lo = Math.min(lo, f.start_ms); hi = Math.max(hi, f.end_ms); }
  if (!isFinite(lo)) { lo = Date.UTC(2000, 0, 1); hi = lo + DAY; }
  const fitSpan = Math.max(MINUTE, (hi - lo) * 1.04);
  const maxSpan = Math.max(WEEK, fitSpan);
  const view = { start: lo - (fitSpan - (hi - lo)) / 2, span: fitSpan };
  let selected = null;   // { camera, start, end, index? }

  // The first item whose start may reach `t`, for items sorted by start.
  const firstFrom = (items, t, longest) => {
    let a = 0, b = items.length;
    const from = t - longest;
    while (a < b) { const m = (a + b) >> 1; if (items[m].start_ms < from) a = m + 1; else b = m; }
    return a;
  };

  const laneBox = document.getElementById("lanes");
  for (const [camera, lane] of lanes) {
    const row = el("div", { className: "lane" });
    row.dataset.camera = camera;
    row.append(el("div", { className: "label" }, camera));
    lane.track = el("div", { className: "track" });
    lane.track.dataset.camera = camera;
    row.append(lane.track);
    laneBox.append(row);
  }

  const legend = document.getElementById("legend");
  for (const [state, colour] of Object.entries(STATES)) {
    const s = el("span", {}, state);
    s.style.setProperty("--c", colour);
    legend.append(s);
  }
  const gapKey = el("span", {}, "gap (hover for its cause)");
  gapKey.style.setProperty("--c", "rgba(200,40,40,.35)");
  legend.append(gapKey);

  function render() {
    const first = laneBox.querySelector(".track");
    const width = first ? first.clientWidth : 800;
    const end = view.start + view.span;
    const x = t => (t - view.start) / view.span * width;
    for (const lane of lanes.values()) {
      const frag = document.createDocumentFragment();
      for (let i = firstFrom(lane.gaps, view.start, longestGap); i < lane.gaps.length; ++i) {
        const g = lane.gaps[i];
        if (g.start_ms > end) break;
        if (g.end_ms < view.start) continue;
        const d = el("div", { className: "gap " + cls(g.cause) });
        d.style.left = x(g.start_ms) + "px";
        d.style.width = Math.max(1, x(g.end_ms) - x(g.start_ms)) + "px";
        d.dataset.cause = g.cause;
        d.title = `Gap ${fmt(g.start_ms)} to ${fmt(g.end_ms)} (${span(g.end_ms - g.start_ms)}): ${CAUSES[g.cause] || g.cause}`;
        frag.append(d);
      }
      let merged = null;
      for (let i = firstFrom(lane.files, view.start, lane.longest); i < lane.files.length; ++i) {
        const f = lane.files[i];
        if (f.start_ms > end) break;
        if (f.end_ms < view.start) continue;
        const left = x(f.start_ms), right = Math.max(left + 1, x(f.end_ms));
        // Recordings too narrow to see apart are drawn as one.
        if (merged && right - left < 1 && left - merged.right < 1 && merged.state === f.state) {
          merged.right = right; merged.count++;
          merged.div.style.width = (merged.right - merged.left) + "px";
          merged.div.dataset.count = merged.count;
          merged.div.title = `${merged.count} recordings`;
          continue;
        }
        const b = el("div", { className: "bar " + cls(f.state) });
        b.style.left = left + "px";
        b.style.width = (right - left) + "px";
        b.dataset.index = f.index;
        b.dataset.path = f.path;
        b.dataset.start = f.start;
        b.dataset.end = f.end;
        b.dataset.count = 1;
        b.title = `${f.path}\n${f.start} to ${f.end}\n${f.state}`;
        if (selected && selected.index === f.index) b.classList.add("selected");
        frag.append(b);
        merged = { div: b, left, right, state: f.state, count: 1 };
      }
      if (selected && selected.camera === lane.track.dataset.camera && selected.index === undefined) {
        const s = el("div", { className: "selection" });
        s.style.left = x(selected.start) + "px";
        s.style.width = Math.max(1, x(selected.end) - x(selected.start)) + "px";
        frag.append(s);
      }
      lane.track.replaceChildren(frag);
    }
    renderAxis(width, x);
    document.getElementById("range").textContent = `${fmt(view.start)} to ${fmt(end)}`;
    laneBox.dataset.viewStart = view.start;
    laneBox.dataset.viewEnd = end;
  }

  function renderAxis(width, x) {
    const steps = [1e3, 5e3, 15e3, 3e4, 6e4, 3e5, 6e5, 18e5, 36e5, 3 * 36e5, 6 * 36e5, 12 * 36e5, DAY, 2 * DAY];
    const step = steps.find(s => s / view.span * width >= 90) || 2 * DAY;
    const axis = document.getElementById("axis");
    const frag = document.createDocumentFragment();
    for (let t = Math.ceil(view.start / step) * step; t <= view.start + view.span; t += step) {
      const text = step >= DAY ? fmt(t).slice(0, 10) : view.span > DAY ? fmt(t).slice(5, 16)
                 : step >= MINUTE ? fmt(t).slice(11, 16) : fmt(t).slice(11, 19);
      const tick = el("div", { className: "tick" }, text);
      tick.style.left = x(t) + "px";
      frag.append(tick);
    }
    axis.replaceChildren(frag);
  }

  function zoomTo(newSpan, centre) {
    newSpan = Math.min(maxSpan, Math.max(MINUTE, newSpan));
    const c = centre === undefined ? view.start + view.span / 2 : centre;
    const ratio = (c - view.start) / view.span;
    view.start = c - ratio * newSpan;
    view.span = newSpan;
    render();
  }

  function showDetails() {
    const box = document.getElementById("details");
    if (!selected) { box.replaceChildren(); return; }
    const lane = lanes.get(selected.camera);
    const parts = [];
    if (selected.index !== undefined) {
      const f = model.files[selected.index];
      const rows = [["path", f.path], ["camera", f.camera], ["start", f.start], ["end", f.end],
                    ["length", span((f.end_ms - f.start_ms))], ["codec", f.codec ?? "-"], ["size", f.size ?? "-"],
                    ["bytes", String(f.bytes)], ["state", f.state]];
      if (f.why) rows.push(["why", f.why]);
      const table = el("table");
      for (const [k, v] of rows) {
        const tr = el("tr");
        tr.append(el("td", {}, k), el("td", {}, v));
        table.append(tr);
      }
      parts.push(table);
      const thumb = model.thumbs && model.thumbs[selected.index];
      if (thumb) parts.push(el("img", { src: thumb, alt: "First picture of " + f.path }));
    } else {
      parts.push(el("div", {}, `${selected.camera}: ${fmt(selected.start)} to ${fmt(selected.end)} (${span(selected.end - selected.start)})`));
    }
    const sources = lane.files.filter(f => f.end_ms >= selected.start && f.start_ms <= selected.end && f.state !== "unreadable");
    const out = `${selected.camera}-${fmt(selected.start).replace(/[-: ]/g, "").slice(0, 14)}.mkv`;
    const command = sources.length === 0 ? "# no recording in the selected range"
      : ["dravix export", ...sources.map(f => quote(f.path)), quote(out),
         "--from", quote(fmt(selected.start, true)), "--to", quote(fmt(selected.end, true))].join(" ");
    const line = el("div", { className: "command" });
    const text = el("textarea", { readOnly: true, id: "export-command" }, command);
    const copy = el("button", {}, "Copy");
    copy.addEventListener("click", () => {
      text.select();
      const done = () => { copy.textContent = "Copied"; };
      if (navigator.clipboard) navigator.clipboard.writeText(command).then(done, () => { document.execCommand("copy"); done(); });
      else { document.execCommand("copy"); done(); }
    });
    line.append(text, copy);
    parts.push(line);
    box.replaceChildren(...parts);
  }

  // Drag to move, shift+drag to select, click a bar for its details.
  let drag = null;
  laneBox.addEventListener("mousedown", e => {
    const track = e.target.closest(".track");
    if (!track || e.button !== 0) return;
    const box = track.getBoundingClientRect();
    drag = { track, x0: e.clientX, start0: view.start, select: e.shiftKey, box, moved: false, bar: e.target.closest(".bar") };
    track.classList.add("dragging");
    e.preventDefault();
  });
  window.addEventListener("mousemove", e => {
    if (!drag) return;
    const dx = e.clientX - drag.x0;
    if (Math.abs(dx) > 2) drag.moved = true;
    if (!drag.moved) return;
    if (drag.select) {
      const t = px => view.start + (px - drag.box.left) / drag.box.width * view.span;
      const a = t(drag.x0), b = t(e.clientX);
      selected = { camera: drag.track.dataset.camera, start: Math.min(a, b), end: Math.max(a, b) };
    } else {
      view.start = drag.start0 - dx / drag.box.width * view.span;
    }
    render();
  });
  window.addEventListener("mouseup", () => {
    if (!drag) return;
    const d = drag;
    drag = null;
    d.track.classList.remove("dragging");
    if (!d.moved && d.bar && d.bar.dataset.count === "1") {
      const f = model.files[Number(d.bar.dataset.index)];
      selected = { camera: f.camera, start: f.start_ms, end: f.end_ms, index: Number(d.bar.dataset.index) };
      render();
    } else if (!d.moved && d.bar) {
      // A merged bar: zoom in on it.
      const l = parseFloat(d.bar.style.left), w = parseFloat(d.bar.style.width);
      zoomTo(view.span * Math.max(w, 8) / d.box.width * 2, view.start + (l + w / 2) / d.box.width * view.span);
      return;
    }
    showDetails();
  });
  laneBox.addEventListener("wheel", e => {
    const track = e.target.closest(".track");
    if (!track) return;
    e.preventDefault();
    if (e.shiftKey) { view.start += e.deltaY / track.clientWidth * view.span; render(); return; }
    const box = track.getBoundingClientRect();
    zoomTo(view.span * (e.deltaY > 0 ? 1.25 : 0.8), view.start + (e.clientX - box.left) / box.width * view.span);
  }, { passive: false });
  for (const b of document.querySelectorAll("[data-zoom]"))
    b.addEventListener("click", () => b.dataset.zoom === "fit"
      ? (view.start = lo - (fitSpan - (hi - lo)) / 2, view.span = fitSpan, render())
      : zoomTo(Number(b.dataset.zoom)));
  for (const b of document.querySelectorAll("[data-pan]"))
    b.addEventListener("click", () => { view.start += Number(b.dataset.pan) * view.span; render(); });
  window.addEventListener("keydown", e => {
    if (e.target.tagName === "TEXTAREA") return;
    if (e.key === "+" || e.key === "=") zoomTo(view.span * 0.8);
    else if (e.key === "-") zoomTo(view.span * 1.25);
    else if (e.key === "ArrowLeft") { view.start -= view.span / 4; render(); }
    else if (e.key === "ArrowRight") { view.start += view.span / 4; render(); }
  });
  window.addEventListener("resize", render);
  render();
  document.body.dataset.ready = "1";
})();
</script>
</body>
</html>
)HTML";

}  // namespace

std::string TimelinePageHtml(const nlohmann::json& model) {
  // The model sits in a script element: "</" inside a string must not end it.
  std::string data = model.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  std::string safe;
  safe.reserve(data.size());
  for (size_t i = 0; i < data.size(); ++i) {
    if (data[i] == '<' && i + 1 < data.size() && data[i + 1] == '/') {
      safe += "<\\/";
      ++i;
    } else {
      safe += data[i];
    }
  }
  std::string page;
  page.reserve(kHead.size() + safe.size() + kTail.size());
  page.append(kHead).append(safe).append(kTail);
  return page;
}

}  // namespace dravix::cli
