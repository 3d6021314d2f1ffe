// Making elements and texts. Everything from the bus becomes text, never markup.
export const $ = (id) => document.getElementById(id);

export function el(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (key === "onclick") made.addEventListener("click", value);
    else if (value !== undefined && value !== false) made.setAttribute(key, value === true ? "" : value);
  }
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

export function svg(name, attributes = {}, text) {
  const made = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  if (text !== undefined) made.textContent = text;
  return made;
}

const groups = new Intl.NumberFormat("en", { maximumFractionDigits: 0 });
export const count = (value) => (value === undefined || value === null ? "–" : groups.format(value));

export function rate(value) {
  if (value === undefined || value === null) return "–";
  if (value >= 100000) return `${groups.format(value / 1000)} k`;
  return value >= 10 || value === 0 ? groups.format(value) : value.toFixed(1);
}

export function bytes(value) {
  if (value === undefined || value === null) return "–";
  const units = ["B", "KiB", "MiB", "GiB"];
  let unit = 0;
  while (value >= 1024 && unit < units.length - 1) { value /= 1024; ++unit; }
  return `${value >= 10 || unit === 0 ? Math.round(value) : value.toFixed(1)} ${units[unit]}`;
}

export function age(ms) {
  if (ms === undefined || ms === null) return "–";
  const s = ms / 1000;
  if (s < 10) return `${s.toFixed(1)} s`;
  if (s < 120) return `${Math.round(s)} s`;
  if (s < 7200) return `${Math.round(s / 60)} min`;
  return s < 172800 ? `${Math.round(s / 3600)} h` : `${Math.round(s / 86400)} d`;
}

export const clock = (ms, fine) => {
  const time = new Date(ms).toLocaleTimeString("en-GB");
  return fine ? `${time}.${String(ms % 1000).padStart(3, "0")}` : time;
};

// A row of a table; a cell is [content, class] or plain content.
export function row(cells, tag = "td") {
  const made = el("tr");
  for (const cell of cells) {
    const [content, kind] = Array.isArray(cell) ? cell : [cell, ""];
    made.append(el(tag, { class: kind || undefined, scope: tag === "th" ? "col" : undefined }, content));
  }
  return made;
}
