// Rates of the last ten minutes.
import { el, rate, svg } from "./text.js";

const W = 320, H = 102, LEFT = 40, BOTTOM = 22, TOP = 6;

// Means over steps, as the server keeps them; the page goes on where the server's end.
export class History {
  constructor() { this.set({ step_ms: 5000, until: 0, bus: [[], []], daemons: {} }); }

  set(data) {
    this.step = data.step_ms;
    this.until = data.until;
    this.bus = { data: data.bus, sums: [[0, 0], [0, 0]] };
    this.daemons = new Map(Object.entries(data.daemons).map(([name, both]) => [name, { data: both, sums: [[0, 0], [0, 0]] }]));
    this.length = data.bus[0].length;
  }

  add(time, server, daemons) {
    if (this.length === 0) return;
    this.advance(Math.floor(time / this.step));
    const put = (series, rates) => rates.forEach((value, i) => {
      if (value === undefined) return;
      const sum = series.sums[i];
      sum[0] += value; ++sum[1];
      series.data[i][this.length - 1] = sum[0] / sum[1];
    });
    put(this.bus, [server.sent_rate, server.received_rate]);
    for (const daemon of daemons) {
      let series = this.daemons.get(daemon.name);
      if (!series) {
        const empty = () => new Array(this.length).fill(null);
        series = { data: [empty(), empty()], sums: [[0, 0], [0, 0]] };
        this.daemons.set(daemon.name, series);
      }
      put(series, [daemon.sent_rate, daemon.received_rate]);
    }
  }

  // To a step; daemons that were not there for the whole time are forgotten. The clock may have been set: a machine
  // without one starts in 1970. A step before the latest begins anew.
  advance(step) {
    const gone = step < this.until ? this.length : Math.min(step - this.until, this.length);
    this.until = step;
    if (gone === 0) return;
    for (const series of [this.bus, ...this.daemons.values()]) {
      series.sums = [[0, 0], [0, 0]];
      series.data = series.data.map((values) => [...values.slice(gone), ...new Array(gone).fill(null)]);
    }
    for (const [name, series] of this.daemons) if (series.data.every((values) => values.every((value) => value === null))) this.daemons.delete(name);
  }
}

// The next of 1, 2, 5, 10, 20, ...
function ceiling(value) {
  const power = 10 ** Math.floor(Math.log10(Math.max(value, 1)));
  return [1, 2, 5, 10].map((factor) => factor * power).find((each) => each >= value) ?? 1;
}

function path(values, top, width) {
  let text = "", pen = false;
  values.forEach((value, i) => {
    if (value === null) { pen = false; return; }
    const x = LEFT + ((width - LEFT - 4) * i) / (values.length - 1), y = TOP + (H - TOP - BOTTOM) * (1 - value / top);
    text += `${pen ? "L" : "M"}${x.toFixed(1)} ${y.toFixed(1)}`;
    if (!pen && (i + 1 === values.length || values[i + 1] === null)) text += "h1.5"; // a value by itself
    pen = true;
  });
  return text;
}

export function drawing([sent, received], width = W) {
  const top = ceiling(Math.max(1, ...sent.filter((v) => v !== null), ...received.filter((v) => v !== null)));
  const made = svg("svg", { viewBox: `0 0 ${width} ${H}`, "aria-hidden": "true" });
  for (const part of [0, 0.5, 1]) {
    const y = TOP + (H - TOP - BOTTOM) * (1 - part);
    made.append(svg("line", { class: "grid", x1: LEFT, x2: width - 4, y1: y, y2: y }));
    if (part !== 0.5) made.append(svg("text", { x: LEFT - 6, y: y + 4, "text-anchor": "end" }, rate(top * part)));
  }
  made.append(svg("text", { x: LEFT, y: H - 5 }, "10 min ago"), svg("text", { x: width - 4, y: H - 5, "text-anchor": "end" }, "now"));
  made.append(svg("path", { class: "s", d: path(sent, top, width) }), svg("path", { class: "r", d: path(received, top, width) }));
  return made;
}

export function figure(title, series, wide) {
  const last = series.data.map((values) => values[values.length - 1]);
  const now = `${rate(last[0])} sent, ${rate(last[1])} received`;
  const made = el("figure", { class: `panel plot${wide ? " wide" : ""}` },
    el("figcaption", {}, title, el("span", {}, now)));
  made.append(drawing(series.data, wide ? Math.max(W, Math.min(1000, document.body.clientWidth - 80)) : W));
  return made;
}
