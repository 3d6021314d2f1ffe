// Joins the server's events and the views.
import { $, age, count, el, rate } from "./text.js";
import { connections, merge } from "./model.js";
import { Picture, leftOutText } from "./picture.js";
import { History, figure } from "./plots.js";
import { Traffic, drawDetail, drawLines, drawLosses, drawTable, drawWaits } from "./views.js";

const VIEWS = ["bus", "rates", "waits", "traffic", "logs", "losses"];
const MOST_PLOTS = 24;

let view = null, daemons = [], edges = [], losses = [];
let log = { lines: [] }, mlog = { lines: [] };
let chosen = null, tab = "bus", source = null, paused = false, seenLosses = 0, cameFrom = null;
const history = new History(), traffic = new Traffic();
const picture = new Picture($("picture"), choose);

function choose(name) {
  cameFrom = document.activeElement;
  chosen = name;
  $("h-detail").textContent = name || "(no name)";
  $("detail-close").hidden = false;
  draw();
  $("h-detail").focus();
}

function unchoose() {
  chosen = null;
  $("h-detail").textContent = "Daemon";
  $("detail-close").hidden = true;
  $("detail-body").replaceChildren(el("p", { class: "note" }, "Choose a daemon in the picture or in the table, with a click or with Enter."));
  draw();
  if (cameFrom?.isConnected) cameFrom.focus();
}

function drawTotals() {
  const troubled = daemons.filter((d) => d.stopped || d.wait?.cycle).length;
  const pairs = [["daemons", count(daemons.length)], ["messages/s", rate(view.server.received_rate ?? view.server.sent_rate)],
    ["unread", count(daemons.reduce((sum, d) => sum + d.unread, 0))], ["lost", count((view.server.dropped ?? 0) + daemons.reduce((sum, d) => sum + d.refused, 0))], ["server up", age(view.server.uptime_ms)]];
  $("totals").replaceChildren(...pairs.map(([term, value]) => el("div", {}, el("dt", {}, term), el("dd", {}, value))));
  const waiting = view.waits.filter((wait) => wait.lasts).length + daemons.filter((d) => d.stopped).length;
  badge("waits", waiting, `${waiting} waiting or stopped`);
  badge("losses", tab === "losses" ? 0 : losses.length - seenLosses, "new losses");
  document.title = `${troubled ? `(${troubled}) ` : ""}Message bus`;
}

function badge(name, number, label) {
  const made = $(`${name}-badge`);
  made.hidden = number <= 0;
  made.textContent = number;
  made.title = label;
}

function drawPlots() {
  const filter = $("rates-filter").value.toLowerCase();
  const busy = (d) => Math.max(0, ...(history.daemons.get(d.name)?.data.flat() ?? []));
  const shown = daemons.filter((d) => d.name.toLowerCase().includes(filter) && history.daemons.has(d.name))
    .map((d) => [busy(d), d]).sort((a, b) => b[0] - a[0]).slice(0, MOST_PLOTS).map(([, d]) => d);
  const made = filter ? [] : [figure("All messages", history.bus, true)];
  for (const daemon of shown) made.push(figure(daemon.name, history.daemons.get(daemon.name)));
  $("plots").replaceChildren(...made);
}

function draw() {
  if (!view) return;
  drawTotals();
  if (tab === "bus") {
    const rest = picture.draw(daemons, edges, view.server, chosen);
    $("picture-note").textContent = leftOutText(rest) || (edges.length ? "" : "No messages in the last second");
    drawTable(daemons, $("daemon-filter").value, choose);
    $("left-out").hidden = view.left_out === 0;
    $("left-out").textContent = `${count(view.left_out)} more daemons are not shown.`;
    if (chosen !== null) drawDetail(daemons.find((d) => d.name === chosen), edges, history.daemons.get(chosen));
  } else if (tab === "rates") drawPlots();
  else if (tab === "waits") drawWaits(view, daemons);
  else if (tab === "losses") drawLosses(view, losses, daemons);
}

function drawLogs() {
  drawLines("log", log, $("log-filter").value);
  drawLines("mlog", mlog, $("mlog-filter").value);
}

function show(name) {
  tab = VIEWS.includes(name) ? name : "bus";
  for (const each of VIEWS) $(`view-${each}`).hidden = each !== tab;
  for (const link of document.querySelectorAll("nav a")) {
    if (link.hash === `#${tab}`) link.setAttribute("aria-current", "page");
    else link.removeAttribute("aria-current");
  }
  if (tab === "losses") seenLosses = losses.length;
  connect();
  draw();
}

// Only what the view shows is asked for.
function address() {
  const query = new URLSearchParams();
  if (tab === "logs") query.set("logs", "1");
  if (tab === "traffic" && !paused) {
    query.set("traffic", "1");
    query.set("daemon", $("traffic-daemon").value.trim());
    query.set("types", $("traffic-types").value.trim());
    if ($("traffic-undelivered").checked) query.set("undelivered", "1");
  }
  return `/events${query.size ? `?${query}` : ""}`;
}

function setState(text, kind) {
  if ($("state").textContent !== text) $("state").textContent = text;
  $("state").className = `state ${kind}`;
}

function connect(again) {
  const wanted = address();
  if (source && source.wanted === wanted && !again) return;
  source?.close();
  source = new EventSource(wanted);
  source.wanted = wanted;
  const made = source;
  const on = (name, take) => made.addEventListener(name, (event) => made === source && take(JSON.parse(event.data)));
  on("state", (state) => {
    $("trouble").hidden = !state.trouble;
    $("trouble").textContent = state.trouble;
    $("version").textContent = `zorweb ${state.version}`;
    state.trouble ? setState("no bus", "lost") : setState("live", "live");
  });
  on("history", (data) => { history.set(data); draw(); });
  on("losses", (data) => { losses = data; if (tab === "losses") seenLosses = losses.length; draw(); });
  on("view", (data) => {
    view = data;
    daemons = merge(view);
    edges = connections(view);
    history.add(view.time, view.server, daemons);
    draw();
  });
  on("traffic", (data) => traffic.add(data, $("traffic-text").value));
  on("traffic-problem", (problem) => { $("traffic-note").textContent = problem; });
  on("log", (data) => { log = data; drawLogs(); });
  on("mlog", (data) => { mlog = data; drawLogs(); });
  made.onerror = () => {
    if (made !== source) return;
    if (made.readyState !== EventSource.CLOSED) return setState("reconnecting…", "lost");
    refused(made);
  };
}

// The browser does not try again by itself: the session has expired, a filter is malformed, or the server is busy.
async function refused(made) {
  setState("not connected", "lost");
  const status = await fetch("/", { method: "HEAD" }).then((reply) => (reply.url.endsWith("/login") ? 401 : reply.status), () => 0);
  if (made !== source) return;
  if (status === 401) return location.assign("/login");
  if (status === 200 && made.wanted.includes("traffic=1")) {
    $("traffic-note").textContent = "There is no such name or type: a type is a name, a number, or two of them with a hyphen.";
  }
  setTimeout(() => made === source && connect(true), 5000);
}

addEventListener("hashchange", () => { show(location.hash.slice(1)); if (document.activeElement?.closest("nav") === null) $("main").focus(); });
addEventListener("resize", draw);
addEventListener("keydown", (event) => { if (event.key === "Escape" && chosen !== null) unchoose(); });
$("detail-close").addEventListener("click", unchoose);
for (const id of ["daemon-filter", "rates-filter"]) $(id).addEventListener("input", draw);
for (const id of ["log-filter", "mlog-filter"]) $(id).addEventListener("input", drawLogs);
$("traffic-text").addEventListener("input", () => traffic.filter($("traffic-text").value));
$("traffic-form").addEventListener("submit", (event) => { event.preventDefault(); traffic.clear(); connect(true); });
$("traffic-pause").addEventListener("click", () => {
  paused = !paused;
  $("traffic-pause").setAttribute("aria-pressed", String(paused));
  $("traffic-pause").textContent = paused ? "Resume" : "Pause";
  connect();
});
show(location.hash.slice(1));
