// The bus as a picture: daemons around the server, curves between those that talk, dashes where one waits for another.
import { age, count, rate, svg } from "./text.js";

const WIDTH = 112, HEIGHT = 40, GAP = 16; // of a daemon's box
const MOST = 48; // boxes; the table has all daemons
const HUB = "";

export class Picture {
  constructor(box, onChoose) {
    this.box = box;
    this.onChoose = onChoose;
    this.nodes = new Map();
    this.svg = svg("svg", { role: "group", "aria-label": "Daemons and who talks to whom" });
    this.lines = svg("g", { "aria-hidden": "true" });
    this.boxes = svg("g");
    this.tags = svg("g", { "aria-hidden": "true" });
    this.svg.append(this.lines, this.boxes, this.tags);
    box.append(this.svg);
    this.shape = "";
  }

  // The daemons that fit: those in trouble and the busiest, in the order of their names.
  pick(daemons) {
    if (daemons.length <= MOST) return daemons;
    const weight = (d) => (d.trouble ? 1e9 : 0) + (d.waiters.length ? 1e8 : 0) + (d.sent_rate ?? 0) + (d.received_rate ?? 0);
    const kept = new Set([...daemons].sort((a, b) => weight(b) - weight(a)).slice(0, MOST));
    return daemons.filter((d) => kept.has(d));
  }

  draw(daemons, edges, server, chosen) {
    const shown = this.pick(daemons);
    const width = Math.max(this.box.clientWidth, 280);
    const shape = `${width} ${shown.map((d) => d.name).join("\n")}`;
    if (shape !== this.shape) this.place(shown, width);
    this.shape = shape;
    for (const daemon of shown) this.update(daemon, daemon.name === chosen);
    this.hub.lastChild.textContent = `${rate(server.received_rate ?? server.sent_rate)}/s`;
    this.drawLines(shown, edges, chosen);
    return daemons.length - shown.length;
  }

  // Boxes along the sides of a rectangle; on a narrow screen in two columns.
  place(shown, width) {
    const n = shown.length, step = HEIGHT + GAP;
    const room = Math.floor((width - 2 * WIDTH - 48) / (WIDTH + GAP));
    const across = n < 6 ? 0 : Math.max(0, Math.min(room, Math.round(n * 0.3)));
    const side = Math.ceil((n - 2 * across) / 2);
    const rows = across > 0 ? side + 2 : side;
    const height = Math.max(rows * step + 12, 260);
    const places = [];
    const inner = height - 2 * (across > 0 ? step : 0);
    const left = Math.ceil((n - 2 * across) / 2), right = n - 2 * across - left;
    const apart = inner / Math.max(left, 1);
    const y = (i, of) => height / 2 + (i - (of - 1) / 2) * apart;
    const x = (i) => (width * (i + 1)) / (across + 1);
    this.narrow = across === 0;
    for (let i = 0; i < across; ++i) places.push([x(i), HEIGHT / 2 + 6]);
    for (let i = 0; i < right; ++i) places.push([width - WIDTH / 2 - 4, y(i, right)]);
    for (let i = across - 1; i >= 0; --i) places.push([x(i), height - HEIGHT / 2 - 6]);
    for (let i = left - 1; i >= 0; --i) places.push([WIDTH / 2 + 4, y(i, left)]);
    this.svg.setAttribute("viewBox", `0 0 ${width} ${height}`);
    this.middle = [width / 2, height / 2];
    const old = this.nodes;
    const focused = document.activeElement?.dataset?.name;
    this.nodes = new Map();
    this.hub = svg("g", { class: "hub", transform: `translate(${this.middle})` });
    const half = width < 480 ? 34 : 48;
    this.hubHalf = half;
    this.hub.append(svg("rect", { x: -half, y: -HEIGHT / 2, width: 2 * half, height: HEIGHT, rx: 20 }), svg("text", { y: -2 }, "server"), svg("text", { class: "sub", y: 13 }));
    this.boxes.replaceChildren(this.hub);
    shown.forEach((daemon, i) => {
      const node = old.get(daemon.name) ?? this.make(daemon.name);
      node.at = places[i];
      node.group.setAttribute("transform", `translate(${places[i]})`);
      this.nodes.set(daemon.name, node);
      this.boxes.append(node.group);
      if (focused === daemon.name) node.group.focus();
    });
  }

  make(name) {
    const group = svg("g", { class: "node", role: "button", tabindex: 0 });
    group.dataset.name = name;
    const label = svg("text", { y: -2 }, name || "(no name)"), sub = svg("text", { class: "sub", y: 13 });
    const box = svg("rect", { x: -WIDTH / 2, y: -HEIGHT / 2, width: WIDTH, height: HEIGHT, rx: 10 });
    group.append(box, label, sub);
    group.addEventListener("click", () => this.onChoose(name));
    group.addEventListener("keydown", (event) => {
      if (event.key !== "Enter" && event.key !== " ") return;
      event.preventDefault();
      this.onChoose(name);
    });
    return { group, sub, box };
  }

  update(daemon, chosen) {
    const { group, sub, box } = this.nodes.get(daemon.name);
    const flow = (daemon.sent_rate ?? 0) + (daemon.received_rate ?? 0);
    group.setAttribute("class", `node ${daemon.trouble?.kind ?? ""} ${chosen ? "chosen" : ""}`);
    group.setAttribute("aria-pressed", String(chosen));
    box.setAttribute("rx", daemon.trouble?.kind === "bad" ? 2 : 10);
    sub.textContent = daemon.trouble?.short ?? (daemon.sent_rate === undefined ? "" : `${rate(flow)}/s`);
    group.setAttribute("aria-label", `${daemon.name}, ${daemon.trouble?.text ?? daemon.state}, ${rate(daemon.sent_rate)} sent and ${rate(daemon.received_rate)} received a second`);
  }

  // From border to border, bent towards the middle; `bend` keeps the two directions apart.
  curve(from, to, bend) {
    const a = this.at(from), b = this.at(to);
    const [mx, my] = this.middle;
    const dx = b[0] - a[0], dy = b[1] - a[1], far = Math.hypot(dx, dy) || 1;
    const direct = from === HUB || to === HUB;
    let c, d; // what it is drawn towards at either end
    if (this.narrow && !direct) { // along the lane between the columns
      [c, d] = [[mx + bend / 2, a[1] + bend / 3], [mx + bend / 2, b[1] - bend / 3]];
    } else {
      const pull = direct ? 0 : 0.45;
      const middle = [(a[0] + b[0]) / 2, (a[1] + b[1]) / 2];
      // Not through the server, which has no part in it.
      const near = direct ? 0 : Math.max(0, 90 - Math.abs((dx * (my - a[1]) - dy * (mx - a[0])) / far));
      const aside = bend + Math.sign(bend) * near * 0.9;
      c = d = [middle[0] + (mx - middle[0]) * pull - (dy / far) * aside, middle[1] + (my - middle[1]) * pull + (dx / far) * aside];
    }
    const p = this.border(a, c, from === HUB), q = this.border(b, d, to === HUB);
    const spot = (t) => [0, 1].map((i) => (1 - t) ** 3 * p[i] + 3 * t * (1 - t) ** 2 * c[i] + 3 * t * t * (1 - t) * d[i] + t ** 3 * q[i]);
    return { path: `M${p}C${c} ${d} ${q}`, spot, tip: q, from: d };
  }

  at(name) { return name === HUB ? this.middle : this.nodes.get(name).at; }

  border([x, y], [cx, cy], isHub) {
    const dx = cx - x, dy = cy - y;
    const w = (isHub ? this.hubHalf : WIDTH / 2) + 3, h = HEIGHT / 2 + 3;
    const t = Math.min(dx ? w / Math.abs(dx) : Infinity, dy ? h / Math.abs(dy) : Infinity, 1);
    return [x + dx * t, y + dy * t];
  }

  tip({ tip: [x, y], from: [fx, fy] }, size, kind) {
    const angle = Math.atan2(y - fy, x - fx);
    const corner = (turn) => [x + size * Math.cos(angle + turn), y + size * Math.sin(angle + turn)];
    this.lines.append(svg("path", { class: `arrow ${kind}`, d: `M${x} ${y}L${corner(2.7)}L${corner(-2.7)}Z` }));
  }

  drawLines(shown, edges, chosen) {
    this.lines.replaceChildren();
    this.tags.replaceChildren();
    const known = (name) => name === HUB || this.nodes.has(name);
    const taken = [...this.nodes.values()].map(({ at: [x, y] }) => [x, y, WIDTH / 2, HEIGHT / 2]);
    taken.push([...this.middle, this.hubHalf, HEIGHT / 2]);
    let tagged = 0;
    for (const edge of edges.filter((each) => known(each.from) && known(each.to) && each.from !== each.to)) {
      const curve = this.curve(edge.from, edge.to, 10);
      const mine = chosen !== null && (edge.from === chosen || edge.to === chosen);
      const kind = chosen === null ? "" : mine ? "chosen" : "dim";
      const wide = Math.min(1 + Math.log10(1 + edge.rate) * 1.6, 10);
      const path = svg("path", { class: `edge ${kind}`, d: curve.path, "stroke-width": wide.toFixed(1) });
      path.append(svg("title", {}, `${edge.from} → ${edge.to || "server"}: ${rate(edge.rate)}/s`));
      this.lines.append(path);
      this.tip(curve, 7 + wide, kind);
      if ((mine || tagged < 6) && edge.rate >= 1 && this.tag(`${rate(edge.rate)}/s`, curve, taken, "")) ++tagged;
    }
    for (const daemon of shown) {
      const wait = daemon.wait;
      if (!wait || !known(wait.to) || wait.to === daemon.name) continue;
      const curve = this.curve(daemon.name, wait.to, -14);
      this.lines.append(svg("path", { class: `wait ${wait.cycle ? "cycle" : ""}`, d: curve.path }));
      this.tip(curve, 11, wait.cycle ? "cycle-tip" : "wait-tip");
      this.tag(`${wait.cycle ? "cycle, " : "waits "}${age(wait.age_ms)}`, curve, taken, wait.cycle ? "cycle" : "wait-tag");
    }
  }

  // Only where it covers nothing else.
  tag(text, curve, taken, kind) {
    const half = text.length * 3.4 + 2;
    for (const t of [0.5, 0.4, 0.6, 0.3, 0.7]) {
      const [x, y] = curve.spot(t);
      if (taken.some(([ox, oy, ow, oh]) => Math.abs(ox - x) < ow + half && Math.abs(oy - y) < oh + 8)) continue;
      taken.push([x, y, half, 8]);
      this.tags.append(svg("text", { class: `tag ${kind}`, x, y: y + 4 }, text));
      return true;
    }
    return false;
  }
}

export const leftOutText = (rest) => (rest > 0 ? `${count(rest)} quieter daemons are in the table only` : "");
