// The latest view of the bus, and what it means for each daemon.
import { age, count } from "./text.js";

const LATE_MS = 1000; // a live reader has drained anything this old

// The daemons by name: of several processes with one name the sums, and the worst state.
export function merge(view) {
  const waits = view.waits.filter((wait) => wait.lasts);
  const byName = new Map();
  for (const daemon of view.daemons) {
    const known = byName.get(daemon.name);
    if (!known) { byName.set(daemon.name, { ...daemon, processes: [daemon] }); continue; }
    known.processes.push(daemon);
    for (const key of ["sent", "received", "dropped", "sent_rate", "received_rate", "sent_bytes_rate", "received_bytes_rate", "cpu", "unread", "unread_bytes", "refused", "held"]) {
      if (daemon[key] !== undefined) known[key] = (known[key] ?? 0) + daemon[key];
    }
    known.unread_ms = Math.max(known.unread_ms, daemon.unread_ms);
    if (daemon.stopped && !known.stopped) { known.stopped = true; known.state = daemon.state; }
  }
  const all = [...byName.values()].sort((a, b) => (a.name < b.name ? -1 : 1));
  for (const daemon of all) {
    daemon.wait = waits.find((wait) => wait.name === daemon.name);
    daemon.waiters = waits.filter((wait) => wait.to === daemon.name);
    daemon.trouble = troubleOf(daemon);
  }
  return all;
}

// null, or a kind ("bad" or "slow"), a sign, a short text for a node, and a long one.
function troubleOf(daemon) {
  const unread = daemon.unread > 0 ? `, ${count(daemon.unread)} unread` : "";
  if (daemon.stopped) return { kind: "bad", short: `■ ${daemon.state}`, text: `${daemon.state}${unread}` };
  if (daemon.wait?.cycle) return { kind: "bad", short: `⟳ in a cycle`, text: `in a cycle: waits for ${daemon.wait.to}, ${age(daemon.wait.age_ms)}` };
  if (daemon.wait) return { kind: "slow", short: `◷ waits ${age(daemon.wait.age_ms)}`, text: `waits for ${daemon.wait.to || "a barrier"}, ${age(daemon.wait.age_ms)}${daemon.wait.perhaps ? ", perhaps" : ""}` };
  if (daemon.unread > 0 && daemon.unread_ms >= LATE_MS) return { kind: "slow", short: `◷ ${count(daemon.unread)} unread`, text: `does not read: ${count(daemon.unread)} unread, the oldest ${age(daemon.unread_ms)}` };
  return null;
}

// Edges between two names, types added up.
export function connections(view) {
  const sums = new Map();
  for (const [from, to, type, perSecond] of view.edges) {
    const key = `${from}\n${to}`;
    const known = sums.get(key) ?? { from, to, rate: 0, types: [] };
    known.rate += perSecond;
    known.types.push([type, perSecond]);
    sums.set(key, known);
  }
  return [...sums.values()].sort((a, b) => b.rate - a.rate);
}
