// The views that are lists: daemons, one daemon, waits, losses, logs, traffic.
import { $, age, bytes, clock, count, el, rate, row } from "./text.js";
import { drawing } from "./plots.js";

const pill = (kind, text) => el("span", { class: `pill ${kind}` }, text);

// The buttons of the table stay the same elements: the reader may be on one.
const buttons = new Map();

export function drawTable(daemons, filter, onChoose) {
  const table = $("daemons");
  if (!table.tHead) {
    const head = el("thead");
    head.append(row([["Name", "text"], ["State", "text"], "Sent/s", "Received/s", "Unread", "Oldest", "Lost", "Held", "CPU"], "th"));
    table.append(head, el("tbody"));
  }
  const shown = daemons.filter((d) => d.name.toLowerCase().includes(filter.toLowerCase()));
  const rows = shown.map((d) => {
    let button = buttons.get(d.name);
    if (!button) buttons.set(d.name, button = el("button", { type: "button", onclick: () => onChoose(d.name) }, d.name || "(no name)"));
    const state = d.trouble ? pill(d.trouble.kind, d.trouble.text) : pill("", d.state);
    return row([[button, "text"], [state, "text"], rate(d.sent_rate), rate(d.received_rate), count(d.unread), d.unread ? age(d.unread_ms) : "–",
      count((d.dropped ?? 0) + d.refused), bytes(d.held), d.cpu === undefined ? "–" : `${d.cpu.toFixed(1)} %`]);
  });
  const focused = document.activeElement;
  table.tBodies[0].replaceChildren(...rows);
  if (focused?.isConnected && table.contains(focused)) focused.focus({ preventScroll: true });
  for (const name of buttons.keys()) if (!daemons.some((d) => d.name === name)) buttons.delete(name);
}

const facts = (pairs) => {
  const made = el("dl", { class: "facts" });
  for (const [term, value] of pairs) if (value !== null) made.append(el("dt", {}, term), el("dd", {}, value));
  return made;
};
const items = (list) => {
  const made = el("ul", { class: "items" });
  for (const [what, value] of list) made.append(el("li", {}, el("span", {}, what), el("span", { class: "note" }, value)));
  return made;
};

export function drawDetail(daemon, edges, series) {
  const body = $("detail-body");
  if (!daemon) return body.replaceChildren(el("p", { class: "note" }, "This daemon is no longer on the bus."));
  const parts = [];
  if (daemon.trouble) parts.push(el("p", { class: `notice ${daemon.trouble.kind}` }, daemon.trouble.text));
  for (const wait of daemon.waiters) parts.push(el("p", { class: "notice slow" }, `${wait.name} waits for it, ${age(wait.age_ms)} (${wait.type})`));
  if (series) { const plot = el("div", { class: "plot" }); plot.append(drawing(series.data, 306)); parts.push(plot); }
  parts.push(facts([
    ["Process", daemon.processes.map((p) => p.pid || "elsewhere").join(", ")], ["State", daemon.state], ["Board", daemon.board ?? null],
    ["On the bus since", new Date(daemon.since * 1000).toLocaleString("en-GB")],
    ["Sent", `${count(daemon.sent)} · ${rate(daemon.sent_rate)}/s`], ["Received", `${count(daemon.received)} · ${rate(daemon.received_rate)}/s`],
    ["Bytes sent", daemon.sent_bytes_rate === undefined ? null : `${bytes(daemon.sent_bytes_rate)}/s`], ["Bytes received", daemon.received_bytes_rate === undefined ? null : `${bytes(daemon.received_bytes_rate)}/s`],
    ["Unread", daemon.unread ? `${count(daemon.unread)}, ${bytes(daemon.unread_bytes)}, oldest ${age(daemon.unread_ms)}` : "none"],
    ["Missed, refused", `${count(daemon.dropped ?? 0)}, ${count(daemon.refused)}`], ["Memory in the server", bytes(daemon.held)],
  ]));
  const mine = edges.filter((edge) => edge.from === daemon.name || edge.to === daemon.name);
  const section = (title, list) => { if (list.length) parts.push(el("h3", {}, title), items(list)); };
  section("Talks to", mine.slice(0, 12).map((edge) => [edge.from === daemon.name ? `→ ${edge.to || "server"}` : `← ${edge.from}`, `${rate(edge.rate)}/s  ${edge.types[0][0]}`]));
  section("Requests without a reply", daemon.pending.map((each) => [`→ ${each.to || "barrier"}  ${each.type}`, `${age(each.age_ms)}${each.waits === "no" ? "" : `, waits: ${each.waits}`}`]));
  section("Events", daemon.events.map((type) => [type, ""]));
  section("Paths", daemon.patterns.map((pattern) => [pattern, ""]));
  body.replaceChildren(...parts);
}

export function drawWaits(view, daemons) {
  const parts = [];
  const lasting = view.waits.filter((wait) => wait.lasts);
  for (const cycle of view.cycles) parts.push(el("p", { class: "notice bad" }, `⟳ ${cycle}`));
  for (const daemon of daemons.filter((d) => d.stopped)) {
    const held = daemon.waiters.map((wait) => wait.name).join(", ");
    parts.push(el("p", { class: "notice bad" }, `■ ${daemon.name} is ${daemon.trouble.text}${held ? `; ${held} ${daemon.waiters.length === 1 ? "waits" : "wait"} for it` : ""}`));
  }
  if (!parts.length && !lasting.length) parts.push(el("p", { class: "notice good" }, "✓ No daemon waits for another one for long, and none is stopped."));
  const panel = el("div", { class: "panel" });
  for (const chain of chains(lasting)) {
    const made = el("p", { class: "chain" });
    chain.names.forEach((name, i) => {
      if (i) made.append(el("span", { class: "arrow-text" }, `→ ${age(chain.ages[i - 1])} →`));
      made.append(pill(chain.cycle ? "bad" : daemons.find((d) => d.name === name)?.trouble?.kind ?? "", name));
    });
    if (chain.cycle) made.append(el("span", { class: "arrow-text" }, "⟲ a cycle"));
    panel.append(made);
  }
  if (lasting.length) {
    const table = el("table"), head = el("thead"), body = el("tbody");
    head.append(row([["Daemon", "text"], ["waits for", "text"], ["with", "text"], "since", ["certain", "text"]], "th"));
    for (const wait of lasting) {
      body.append(row([[wait.name, "text"], [wait.to ? `${wait.to}${wait.absent ? " (not on the bus)" : ""}` : "a barrier", "text"], [wait.type, "text mono"], age(wait.age_ms),
        [wait.cycle ? pill("bad", "yes, in a cycle") : wait.perhaps ? pill("", "if this type is a request") : "yes", "text"]]));
    }
    table.append(head, body);
    panel.append(el("div", { class: "scroll", tabindex: 0, role: "region", "aria-label": "Waits" }, table));
    parts.push(panel);
  }
  $("waits").replaceChildren(...parts);
}

// Each wait followed to its end, from those for whom nobody waits; then the cycles that are left.
function chains(waits) {
  const next = new Map(waits.map((wait) => [wait.name, wait]));
  const targets = new Set(waits.map((wait) => wait.to));
  const seen = new Set(), found = [];
  const follow = (name) => {
    const chain = { names: [name], ages: [], cycle: false };
    for (let wait = next.get(name); wait; wait = next.get(wait.to)) {
      seen.add(wait.name);
      chain.ages.push(wait.age_ms);
      chain.cycle ||= chain.names.includes(wait.to);
      chain.names.push(wait.to || "barrier");
      if (chain.cycle) break;
    }
    found.push(chain);
  };
  for (const wait of waits) if (!targets.has(wait.name)) follow(wait.name);
  for (const wait of waits) if (!seen.has(wait.name)) follow(wait.name);
  return found;
}

const LOSS = { dropped: "missed messages", refused: "messages refused, its queue was full", restart: "the message server was started again" };

export function drawLosses(view, losses, daemons) {
  const parts = [];
  const lossy = daemons.filter((d) => (d.dropped ?? 0) + d.refused > 0);
  if (!lossy.length && !losses.length) parts.push(el("p", { class: "notice good" }, "✓ Nothing has been lost since the message server started."));
  if (view) {
    const server = view.server;
    parts.push(el("div", { class: "panel" }, el("div", { class: "head" }, el("h3", {}, "Since the message server started")), facts([
      ["Running for", age(server.uptime_ms)], ["Messages that no client could take", count(server.dropped)],
      ["Memory of all clients", `${bytes(server.held)} of ${bytes(server.memory)}`], ["Connections", `${count(server.clients)} of ${count(server.max_clients)}`]])));
  }
  if (lossy.length) {
    const table = el("table"), head = el("thead"), body = el("tbody");
    head.append(row([["Daemon", "text"], "Missed", "Refused, queue full", "Unread now"], "th"));
    for (const d of lossy.sort((a, b) => b.refused + (b.dropped ?? 0) - a.refused - (a.dropped ?? 0))) body.append(row([[d.name, "text"], count(d.dropped ?? 0), count(d.refused), count(d.unread)]));
    table.append(head, body);
    parts.push(el("div", { class: "panel" }, el("div", { class: "scroll", tabindex: 0, role: "region", "aria-label": "Losses by daemon" }, table)));
  }
  if (losses.length) {
    const list = items(losses.map((loss) => [`${clock(loss.time)}  ${loss.name || (loss.what === "restart" ? "" : "the bus")}${loss.what === "restart" ? "" : `: ${count(loss.count)} `}${LOSS[loss.what]}`, ""]));
    parts.push(el("div", { class: "panel" }, el("div", { class: "head" }, el("h3", {}, "Lately, the newest first")), list));
  }
  $("losses").replaceChildren(...parts);
}

const SEVERE = /\]\[(emergency|alert|critical|error)\]|\[(FATL|ERRO)\]/i, WARNING = /\]\[warning\]|\[WARN\]/i;

export function drawLines(id, data, filter) {
  const wanted = filter.toLowerCase();
  const lines = data.lines.filter((line) => line.toLowerCase().includes(wanted));
  const made = lines.map((line) => el("li", { class: SEVERE.test(line) ? "bad" : WARNING.test(line) ? "slow" : undefined }, line));
  if (!made.length) made.push(el("li", { class: "none" }, data.problem ?? (data.lines.length ? "No line has this text." : "No lines yet.")));
  $(id).replaceChildren(...made);
}

export class Traffic {
  constructor() { this.rows = []; this.leftOut = 0; this.seen = 0; }

  clear() { this.rows = []; this.leftOut = this.seen = 0; $("traffic").replaceChildren(); this.note(); }

  add(data, text) {
    this.leftOut += data.left_out;
    this.paused = data.paused;
    this.seen += data.messages.length;
    const table = $("traffic");
    if (!table.tHead) {
      const head = el("thead");
      head.append(row([["Time", "text"], ["From", "text"], ["To", "text"], ["Type", "text"], "Bytes", ["Body", "text"]], "th"));
      table.append(head, el("tbody"));
    }
    for (const each of data.messages) {
      const made = row([[clock(each.time, true), "text mono"], [each.from || "server", "text"],
        [`${each.delivered ? "→" : "✕"} ${each.to || "server"}`, `text${each.delivered ? "" : " undelivered"}`],
        [`${each.type}${each.reply ? " (reply)" : ""}${each.delivered ? "" : ", undelivered"}`, "text"], count(each.bytes), [each.body, "mono body"]]);
      this.rows.unshift(made);
      table.tBodies[0].prepend(made);
    }
    for (const old of this.rows.splice(300)) old.remove();
    this.filter(text);
    this.note();
  }

  filter(text) {
    const wanted = text.toLowerCase();
    for (const made of this.rows) made.hidden = wanted !== "" && !made.textContent.toLowerCase().includes(wanted);
  }

  note() {
    const rest = this.leftOut ? ` ${count(this.leftOut)} more were not shown: there are too many to read, narrow the filter.` : this.paused ? " There are too many to read: narrow the filter." : "";
    $("traffic-note").textContent = `${count(this.seen)} messages.${rest}`;
  }
}
