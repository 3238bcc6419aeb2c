"use strict";

// A tile for each capture, or for what a log tells of.

const things = data.things ?? (data.columns ? "replays" : "sets");
const KINDS = { wrong: "Wrong", note: "Notable", good: "Good" }; // the worst first

const POLL_MILLISECONDS = 1000;

const one = things.replaceAll(/s\b/g, "").replace(" and ", " or ");
const counted = (count) => `${count} ${count === 1 ? one : things}`;

let kind = ""; // of the verdicts shown; all of them if empty

// A low PSNR is a large difference. Equal pictures have none, nor has what could not be compared.
function worstFirst(a, b) {
  const rank = ({ verdict }) => Object.keys(KINDS).indexOf(verdict.kind);
  const quality = ({ verdict, psnr }) => psnr ?? (verdict.kind === "wrong" ? -1 : Infinity);
  return rank(a) - rank(b) || quality(a) - quality(b) || b.findings - a.findings ||
    a.title.localeCompare(b.title, undefined, { numeric: true }) || 0;
}

// Of a name like IMG_20240131_235959.
const timeOf = (title) => title.replace(
  /^.*?(\d{4})(\d\d)(\d\d)_(\d\d)(\d\d)(\d\d).*$|.*/s, (whole, year, ...rest) => year
    ? `${year}-${rest[0]}-${rest[1]} ${rest.slice(2, 5).join(":")}` : "");

// What is not known is left out, and so is what a damaged result of an earlier run holds.
function factsOf({ title, facts, size, blur, focus, findings, problems, psnr, ssim }) {
  return facts ?? [timeOf(title), size?.join?.("×"), Number.isInteger(blur) && `blur ${blur}`,
    focus?.join && `focus ${focus.join()}`, findings > 0 && `findings: ${problems?.join?.(", ") || findings}`,
    Number.isFinite(psnr) && `PSNR ${psnr.toFixed(1)} dB`, psnr && Number.isFinite(ssim) && `SSIM ${ssim.toFixed(4)}`].filter(Boolean).join(" · ");
}

function makeTile(entry) {
  const tile = make("a", undefined, `tile ${entry.verdict.kind}`);
  if (entry.page) tile.href = entry.page;
  else tile.tabIndex = 0;
  if (entry.thumbnail) {
    const picture = make("img");
    picture.alt = "";
    picture.decoding = "async";
    picture.loading = "lazy";
    picture.src = `data:image/jpeg;base64,${entry.thumbnail}`;
    tile.append(picture);
  }
  tile.append(make("b", entry.title), make("span", entry.verdict.text, "verdict"),
    make("span", factsOf(entry)));
  return { tile, entry, kind: entry.verdict.kind, text: tile.textContent.toLowerCase() };
}

let tiles = [];
let received = 0; // from a server, tiles that have been replaced included

const visible = () => tiles.filter(({ tile }) => !tile.hidden).map(({ tile }) => tile);

function filter() {
  const words = byId("search").value.toLowerCase().split(/\s+/);
  for (const each of tiles) {
    each.tile.hidden = (kind && each.kind !== kind) || !words.every((word) => each.text.includes(word));
  }
  byId("count").textContent = `${visible().length} of ${counted(tiles.length)}`;
  for (const button of byId("kinds").children) {
    button.setAttribute("aria-pressed", button.value === kind);
  }
}

function addTiles(entries) {
  const focused = document.activeElement;
  received += entries.length;
  // Of a set that has changed, a server's later tile stays. In a file copies of a set share a page.
  tiles = [...new Map([...tiles, ...entries.map(makeTile)].map((each) => [data.live ? each.entry.page : each, each])).values()];
  if (!data.columns) tiles.sort((a, b) => worstFirst(a.entry, b.entry)); // else in rows and columns
  byId("tiles").replaceChildren(...tiles.map(({ tile }) => tile));
  if (focused !== document.activeElement) focused.focus(); // which moving it has taken
  showKinds();
  filter();
}

// A server's page gets tiles as the sets are inspected, of new ones as well.
async function poll() {
  try {
    const response = await fetch("tiles", { method: "POST", body: String(received) });
    const { sets, tiles: more } = await response.json();
    if (more.length || tiles.length < sets) addTiles(more);
    if (tiles.length < sets) byId("verdict").textContent += `, ${tiles.length} of ${sets} inspected`;
    setTimeout(poll, more.length && tiles.length < sets ? 0 : POLL_MILLISECONDS);
  } catch {
    byId("help").textContent = "The server has ended.";
  }
}

function showKinds() {
  byId("kinds").replaceChildren();
  const counts = Object.keys(KINDS).map((name) => [name, tiles.filter((each) => each.kind === name).length]);
  for (const [name, count] of [["", tiles.length], ...counts]) {
    if (count === 0) continue;
    const button = make("button", `${KINDS[name] ?? "All"} ${count}`);
    button.type = "button";
    button.value = name;
    button.addEventListener("click", () => {
      kind = name;
      filter();
    });
    byId("kinds").append(button);
  }
  const wrong = counts[0][1];
  byId("verdict").textContent = wrong === 0 ? `${counted(tiles.length)}, none wrong`
    : `${wrong} of ${counted(tiles.length)} ${wrong === 1 ? "is" : "are"} wrong`;
  byId("verdict").className = wrong === 0 ? "good" : "wrong";
  document.querySelector("header .findings")?.remove();
  const list = make("ul", undefined, "findings");
  list.append(...(data.findings ?? []).map((text) => make("li", text, "wrong")));
  byId("verdict").after(list);
}

// Moves the focus by tiles, or by rows of tiles.
function walk(key) {
  const shown = visible();
  const at = shown.indexOf(document.activeElement);
  const lower = shown.findIndex(({ offsetTop }) => offsetTop !== shown[0].offsetTop);
  const columns = lower < 0 ? shown.length : lower;
  const step = { ArrowLeft: -1, ArrowRight: 1, ArrowUp: -columns, ArrowDown: columns }[key];
  const rowOf = (index) => Math.floor(index / columns);
  const shorter = key === "ArrowDown" && rowOf(at) < rowOf(shown.length - 1) ? shown.at(-1) : undefined;
  const next = shown[at < 0 ? 0 : at + step] ?? shorter;
  next?.focus();
  return next !== undefined;
}

function pressKey(event) {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  if (event.key === "/" && event.target !== byId("search")) byId("search").focus();
  else if (event.target === byId("search") ? event.key !== "ArrowDown" : !event.key.startsWith("Arrow")) return;
  else if (!walk(event.key)) return;
  event.preventDefault();
}

showTitle();
const said = (text) => byId("help").textContent.replace(text, "");
if (matchMedia("(pointer: coarse)").matches) byId("help").textContent = said(/Keys:.*/s);
if (data.columns) {
  byId("help").textContent = said("The worst come first. ");
  byId("tiles").style.gridTemplateColumns = `repeat(${data.columns}, minmax(120px, 1fr))`;
}
byId("search").setAttribute("aria-label", `Only ${things} with this text`);
byId("search").addEventListener("input", filter);
document.addEventListener("keydown", pressKey);
addTiles(data.tiles);
if (data.live) poll();
