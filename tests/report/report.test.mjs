// Reports of the built tool in a real browser. Environment: BOKEHNODE, the tool; CHROMIUM, the
// browser. Screenshots land in the working folder's screenshots/.

import assert from "node:assert/strict";
import { copyFileSync, cpSync, mkdirSync, readFileSync, readdirSync, rmSync, statSync, writeFileSync } from "node:fs";
import path from "node:path";
import { after, before, test } from "node:test";
import { pathToFileURL } from "node:url";

import { chromium } from "playwright-core";

import { BLUE, HEIGHT, HOSTILE, Material, RED, SQUARE, WIDTH } from "./material.mjs";

const DESKTOP = { viewport: { width: 1280, height: 900 } };
const PHONE = { viewport: { width: 390, height: 844 }, hasTouch: true, isMobile: true };

// The coloured pair: the output of debug view 2 is the aux image, and a region gives the focus.
const REGION = [40, 60, 119, 109];
const FACES = [[200, 20, 50, 80], [20, 140, 60, 60]];
const COLOURED = ["--debug-view", "2", "--af-region", REGION.join(), "--face-rotation", "90",
  ...FACES.flatMap((face) => ["--face", face.join()])];

let browser;
let probe; // decodes screenshots
let material;
const pages = {};

before(async () => {
  const folder = path.resolve("material");
  rmSync(folder, { recursive: true, force: true });
  material = new Material(process.env.BOKEHNODE, folder);
  pages.coloured = material.report("coloured", 0, "render", "red.png", "blue.png", "-o", "coloured",
    ...COLOURED);
  pages.scene = material.report("scene", 0, "render", "left.png", "right.png", "-o", "scene",
    "--focus", "160,121", "--log", "6", "--dump", "--set", `persist.x=${"long".repeat(22)}`);
  browser = await chromium.launch({ executablePath: process.env.CHROMIUM, args: ["--no-sandbox"] });
  probe = await browser.newPage();
});

after(async () => browser?.close());

// The page of a replay of the scene's dumps that differs from them.
function replay(name, ...changes) {
  const set = readdirSync(path.join(material.folder, "scene")).find((file) => file.endsWith(".Y8"));
  return material.report(name, 1, "replay", `scene/${set}`, ...changes);
}

// Opens a page, and fails the test for any message, error or request of its own.
// `held`: after the first two pictures no other is decoded until release() is called.
async function open(t, file, { held, ...options } = DESKTOP) {
  const context = await browser.newContext(options);
  const page = await context.newPage();
  if (held) {
    await page.addInitScript(() => {
      const decode = window.createImageBitmap;
      const released = new Promise((done) => { window.release = done; });
      let calls = 0;
      window.createImageBitmap = async (...picture) => {
        if (++calls > 2) await released;
        return decode(...picture);
      };
    });
  }
  const trouble = [];
  page.on("console", (message) => trouble.push(message.text()));
  page.on("pageerror", (error) => trouble.push(error.message));
  page.on("dialog", (dialog) => trouble.push(dialog.message()));
  const address = pathToFileURL(file).href;
  page.on("request", (request) => {
    const url = request.url();
    if (url !== address && !url.startsWith("data:")) trouble.push(`asks for ${url}`);
  });
  await page.goto(address);
  t.after(async () => {
    await page.screenshot({ path: `screenshots/${t.name.replaceAll(/\W+/g, "-")}.png` });
    await context.close();
    assert.deepEqual(trouble, []);
  });
  return page;
}

// The colours on the screen, by picture pixels of the stage.
async function shown(page, busy = false) {
  await page.locator(`#stage[aria-busy=${busy}]`).scrollIntoViewIfNeeded();
  const box = await page.locator("#stage").boundingBox();
  const shot = await page.screenshot();
  const scale = shot.readUInt32BE(16) / page.viewportSize().width;
  const pixels = await probe.evaluate(async (base64) => {
    const image = new Image();
    image.src = `data:image/png;base64,${base64}`;
    await image.decode();
    const canvas = new OffscreenCanvas(image.width, image.height);
    const context = canvas.getContext("2d");
    context.drawImage(image, 0, 0);
    const { data, width } = context.getImageData(0, 0, image.width, image.height);
    return { bytes: btoa(data.reduce((text, byte) => text + String.fromCharCode(byte), "")), width };
  }, shot.toString("base64"));
  const bytes = Buffer.from(pixels.bytes, "base64");
  return (x, y) => {
    const left = Math.floor((box.x + ((x + 0.5) * box.width) / WIDTH) * scale);
    const top = Math.floor((box.y + ((y + 0.5) * box.height) / HEIGHT) * scale);
    return [...bytes.subarray(4 * (top * pixels.width + left)).subarray(0, 3)];
  };
}

function assertColour(found, expected, what) {
  const distance = Math.max(...found.map((value, i) => Math.abs(value - expected[i])));
  assert.ok(distance <= 14, `${what}: ${found}, expected ${expected}`);
}

// The title of a view of differences, which appears when they are computed.
async function differenceTitle(page) {
  const title = page.locator("#scaleTitle", { hasText: "difference" });
  await title.waitFor({ state: "attached" });
  return title.textContent();
}

// Where an element stands, in picture pixels: left, top, right, bottom.
async function edges(page, selector) {
  return page.evaluate(([query, width, height]) => {
    const stage = document.getElementById("stage").getBoundingClientRect();
    const box = document.querySelector(query).getBoundingClientRect();
    const [x, y] = [width / stage.width, height / stage.height];
    return [(box.left - stage.left) * x, (box.top - stage.top) * y, (box.right - stage.left) * x,
      (box.bottom - stage.top) * y];
  }, [selector, WIDTH, HEIGHT]);
}

function assertNear(found, expected, what) {
  found.forEach((value, i) => assert.ok(Math.abs(value - expected[i]) < 1,
    `${what}: ${found}, expected ${expected}`));
}

// Red left of the divide, blue right of it.
async function assertDivide(page, percent, busy = false) {
  const colourAt = await shown(page, busy);
  const place = (percent / 100) * WIDTH;
  assertColour(colourAt(place - 6, 235), RED, `left of ${percent} %`);
  assertColour(colourAt(place + 6, 235), BLUE, `right of ${percent} %`);
  assert.equal(await page.getByRole("slider").getAttribute("aria-valuenow"), String(percent));
}

test("pointer and keys move the slider", async (t) => {
  const page = await open(t, pages.coloured);
  await page.keyboard.press("o"); // nothing drawn over it
  await assertDivide(page, 50);
  const box = await page.locator("#stage").boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + 40);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width * 0.25, box.y + 60);
  await page.mouse.up();
  await page.mouse.move(box.x + box.width * 0.9, box.y + 60);
  await assertDivide(page, 25);
  for (const [key, percent] of [["ArrowRight", 27], ["ArrowLeft", 25], ["Shift+ArrowRight", 35]]) {
    await page.keyboard.press(key);
    await assertDivide(page, percent);
  }
});

test("touch moves the slider", async (t) => {
  const page = await open(t, pages.coloured, PHONE);
  await page.getByRole("button", { name: "AF region" }).tap();
  const box = await page.locator("#stage").boundingBox();
  await page.touchscreen.tap(box.x + box.width * 0.75, box.y + box.height * 0.9);
  await assertDivide(page, 75);
  const session = await page.context().newCDPSession(page);
  const touch = (type, share) => session.send("Input.dispatchTouchEvent", {
    type, touchPoints: share ? [{ x: box.x + box.width * share, y: box.y + box.height / 2 }] : [],
  });
  await touch("touchStart", 0.75);
  for (const share of [0.7, 0.6, 0.5, 0.4]) await touch("touchMove", share);
  await touch("touchEnd");
  await assertDivide(page, 40);
});

test("space and a click swap the pictures", async (t) => {
  const page = await open(t, pages.coloured);
  await page.keyboard.press("o");
  const colours = async () => (await shown(page))(300, 235);
  await page.keyboard.press("Space");
  assertColour(await colours(), RED, "first");
  await page.keyboard.press("Space");
  assertColour(await colours(), BLUE, "after space");
  await page.locator("#stage").click();
  assertColour(await colours(), RED, "after a click");
  await page.getByRole("button", { name: "Swap" }).click();
  assertColour(await colours(), BLUE, "after the button");
  await page.getByRole("button", { name: "By itself" }).click();
  await page.locator("#beforeName").waitFor();
  await page.locator("#afterName").waitFor();
});

test("overlays stand where they should", async (t) => {
  const page = await open(t, pages.coloured);
  const [left, top, right, bottom] = REGION;
  assertNear(await edges(page, ".afRegion rect"), [left, top, right + 1, bottom + 1], "AF region");
  const focus = await edges(page, ".focus circle");
  assertNear([(focus[0] + focus[2]) / 2, (focus[1] + focus[3]) / 2],
    [(left + right) / 2, (top + bottom) / 2], "focus");
  for (const [i, [x, y, width, height]] of FACES.entries()) {
    const face = `.faces g:nth-child(${i + 1})`;
    assertNear(await edges(page, `${face} rect`), [x, y, x + width, y + height], `face ${i}`);
    // Turned by 90 degrees, its forehead is on the right.
    const arrow = await edges(page, `${face} path`);
    assertNear([arrow[0], (arrow[1] + arrow[3]) / 2], [x + width, y + height / 2], `arrow ${i}`);
    assert.match(await page.locator(`${face} text`).textContent(), /turned 90°/);
  }
  assertColour((await shown(page))(FACES[0][0] - 0.5, 60), [0x6f, 0xd3, 0xff], "a face's edge");

  await page.getByRole("button", { name: "Faces" }).click();
  assert.equal(await page.locator(".faces rect").count(), 0);
  await page.keyboard.press("o");
  assert.equal(await page.locator("#overlay g").count(), 0);
  await page.keyboard.press("o");
  await page.keyboard.press("4"); // the aux picture knows of its crop alone
  assert.deepEqual(await page.locator("#overlay > g").evaluateAll(
    (groups) => groups.map((group) => group.getAttribute("class"))), ["crop"]);
  assertColour((await shown(page))(20, 20), BLUE, "aux");
});

test("a replay is compared with what was dumped", async (t) => {
  const page = await open(t, replay("changed", "--blur", "40"));
  assert.match(await page.locator("#verdict").textContent(),
    /^differs from the dump in \d+ % of luma, as changed$/);
  assert.match(await page.locator(".findings").last().textContent(), /changed: blur: 100 -> 40/);
  assert.equal(await page.locator("#beforeName").textContent(), "dumped output");
  await page.keyboard.press("3");
  assert.match(await differenceTitle(page), /^dumped output against output/);
  // The frame leaves nothing out that differs, and a key shows it as large as it can be.
  await page.locator(".regions rect").first().waitFor({ state: "attached" });
  const [outside, box] = await page.evaluate(() => {
    const [{ width, values }] = pair.difference.levels[0];
    const inside = (x, y) => pair.regions.some(
      ([left, top, right, bottom]) => x >= left && x < right && y >= top && y < bottom);
    return [values.filter((value, i) => value && !inside(i % width, Math.floor(i / width))).length,
      pair.regions[0]];
  });
  assert.equal(outside, 0);
  await page.keyboard.press("d");
  const sides = await edges(page, ".regions rect");
  assert.ok(sides[0] >= 0 && sides[1] >= 0 && sides[2] <= WIDTH && sides[3] <= HEIGHT, String(sides));
  assert.ok(box[2] - box[0] <= sides[2] - sides[0] + 1);
  // The numbers are those of the largest difference that is in sight now.
  const [largest, within] = await page.evaluate(() => {
    const [{ width, values }] = pair.difference.levels[0];
    const [left, top, right, bottom] = pair.regions[0];
    return [values[spot.y * width + spot.x], values.filter((value, i) => i % width >= left &&
      i % width < right && i >= top * width && i < bottom * width).reduce((a, b) => Math.max(a, b))];
  });
  assert.equal(largest, within);
  assert.match(await page.locator("#readout").textContent(), new RegExp(`difference ${largest}$`));
  // A choice leaves the keys to the page, but for those that choose.
  await page.getByLabel("Compare").selectOption("main | output");
  await page.getByLabel("Compare").focus();
  await page.keyboard.press("0");
  await page.keyboard.press("2");
  assert.equal(await page.locator("#beforeName").textContent(), "main");
  assert.deepEqual(await page.evaluate(() => [view.name, place.zoom]), ["Blink", 1]);
  await page.keyboard.press("ArrowUp");
  assert.equal(await page.evaluate(() => pair.before), "dumped output");
});

test("differences without a frame are counted", async (t) => {
  const folder = path.join(material.folder, "spots");
  cpSync(path.join(material.folder, "scene"), folder, { recursive: true });
  const output = path.join(folder, readdirSync(folder).find((name) => name.includes("_res_")));
  const [, pitch] = /_(\d+)x\d+\./.exec(output).map(Number);
  const bytes = readFileSync(output);
  for (let i = 0; i < 12; i++) bytes[(20 + 96 * Math.floor(i / 4)) * pitch + 20 + 80 * (i % 4)] ^= 64;
  writeFileSync(output, bytes);
  const set = readdirSync(folder).find((name) => name.endsWith(".Y8"));
  const page = await open(t, material.report("spots", 1, "replay", `spots/${set}`));
  await page.locator("#help", { hasText: "d next of the 9 largest of 12 differences" }).waitFor();
  await page.keyboard.press("3");
  assert.match(await differenceTitle(page),
    /largest difference 64 of 255; framed are the 9 largest of 12 differences$/);
});

test("a crop stands in its sensor", async (t) => {
  const page = await open(t, replay("cropped", "--main-crop", "320x240", "--main-sensor", "640x480"));
  const [sensor, part] = [await edges(page, ".crop rect.dashed"), await edges(page, ".crop .filled")];
  const sides = ([left, top, right, bottom]) => [right - left, bottom - top];
  assertNear(sides(part), sides(sensor).map((side) => side / 2), "half as wide and high");
  assertNear([part[0] + part[2], part[1] + part[3]], [sensor[0] + sensor[2], sensor[1] + sensor[3]],
    "in the middle");
});

test("a large picture shows reduced while it is decoded", async (t) => {
  const file = material.report("large", 0, "render", "red.png", "blue.png", "-o", "large",
    "--size", "1920x1440", "--debug-view", "2");
  const page = await open(t, file, { ...DESKTOP, held: true });
  await page.waitForFunction(() => pictures.output.finest() > 0);
  await page.keyboard.press("o");
  await assertDivide(page, 50, true);
  await page.evaluate(() => window.release());
  await page.waitForFunction(() => pictures.output.finest() === 0);
  await assertDivide(page, 50);
  assert.deepEqual(await page.evaluate(() => pictures.output.at(1919, 1439)),
    await page.evaluate(() => pictures.output.level(2).map(({ values }) => values.at(-1))));
});

test("differences have a scale and colours by it", async (t) => {
  const page = await open(t, pages.scene);
  await page.keyboard.press("3");
  await page.keyboard.press("o");
  const largest = Number(/largest difference (\d+) of 255/.exec(await differenceTitle(page))[1]);
  assert.ok(largest > 60 && largest < 255, `largest ${largest}`);
  const far = async () => (await shown(page))(282, 120).join();
  const amplified = await far();
  await page.getByRole("button", { name: "×16" }).click();
  assert.match(await differenceTitle(page), /×16/);
  assert.notEqual(await far(), amplified);
  assertColour((await shown(page))(160, 120), [38, 40, 44], "in focus nothing differs");
  assert.ok((await page.locator("#scaleMarks span").allTextContents()).includes("10"));
});

test("disparity marks the focus plane", async (t) => {
  const page = await open(t, pages.scene);
  await page.keyboard.press("5");
  await page.keyboard.press("o");
  const focus = Number(/focus (\d+)/.exec(await page.locator("#focusMark").textContent())[1]);
  const box = await page.locator("#stage").boundingBox();
  await page.mouse.move(box.x + (160.5 * box.width) / WIDTH, box.y + (121.5 * box.height) / HEIGHT);
  await page.locator("#readout", { hasText: `160,121: disparity ${focus}, radius 0.0` }).waitFor();
  // The mark stands over its number's place of the bar.
  const { low, high } = await page.evaluate(() => data.disparity);
  const [bar, mark] = [await edges(page, "#scaleBar"), await edges(page, "#focusMark")];
  assertNear([(mark[0] + mark[2]) / 2],
    [bar[0] + ((focus - low) / (high - low)) * (bar[2] - bar[0])], "mark");

  const [near, far] = [[160, 120], [290, 200]];
  const before = await shown(page);
  await page.keyboard.press("p");
  await page.locator("#focusBand").waitFor();
  const marked = await shown(page);
  assert.deepEqual(marked(...near), before(...near), "the plane keeps its colour");
  const grey = marked(...far);
  assert.ok(new Set(grey).size === 1 && new Set(before(...far)).size > 1, `the rest is grey: ${grey}`);
  // Only what is as near as the focus keeps its colour.
  const coloured = (x) => new Set(marked(x, 120)).size > 1;
  assert.ok(coloured(SQUARE.left + 12) && coloured(SQUARE.right - 12) && !coloured(SQUARE.right + 30));
});

test("what looks wrong comes first", async (t) => {
  const folder = path.join(material.folder, "spoiled");
  material.run(0, "render", "left.png", "right.png", "-o", "spoiled", "--dump");
  rmSync(path.join(folder, readdirSync(folder).find((name) => name.includes("_1_"))));
  const page = await open(t, material.report("spoiled", 1, "inspect", "spoiled"));
  const first = page.locator(".findings li").first();
  assert.match(await first.textContent(), /^WRONG missing: .*aux/);
  const [finding, viewer] = [await first.boundingBox(), await page.locator("#viewer").boundingBox()];
  assert.ok(finding.y + finding.height <= viewer.y);
  // Neither a log nor an aux picture is known here.
  assert.deepEqual(await page.locator("h2").allTextContents(), ["Parameters", "Files", "Originals"]);
  assert.deepEqual(await page.locator("#views button").allTextContents(),
    ["1Slider", "2Blink", "3Difference", "4Disparity"]);
});

test("texts from outside stay texts", async (t) => {
  const markup = "</script><img src=x onerror=document.title='taken'>";
  const page = await open(t, material.report("hostile", 0, "render", HOSTILE, "blue.png", "-o",
    "hostile", "--debug-view", "1", "--set", `persist.x=${markup}`));
  assert.equal(await page.locator("#title").textContent(), HOSTILE);
  assert.ok((await page.locator("td").allTextContents()).includes(markup));
  assert.equal(await page.locator("img").count(), 0);
  assert.notEqual(await page.title(), "taken");
  const link = await page.getByRole("link", { name: HOSTILE }).getAttribute("href");
  assert.equal(decodeURIComponent(link), HOSTILE);
});

test("log lines have the colour of their priority", async (t) => {
  const page = await open(t, pages.scene);
  const colourOf = (letter) => page.locator(`#log .${letter}`).first()
    .evaluate((line) => getComputedStyle(line).color);
  assert.notEqual(await colourOf("E"), await colourOf("D"));
  await page.getByLabel("Lowest priority shown").selectOption("E");
  assert.equal(await page.locator("#log .D:visible").count(), 0);
  // The one success among them says so, and looks so.
  const success = page.locator("#log .E:visible", { hasText: "cali data success" }).first();
  assert.match(await success.textContent(), /a success/);
  assert.notEqual(await success.evaluate((line) => getComputedStyle(line).color),
    await page.evaluate(() => getComputedStyle(document.documentElement).getPropertyValue("--wrong")));
});

// What the node dumped of the scene.
function dumped(pattern) {
  const folder = path.join(material.folder, "scene");
  const name = readdirSync(folder).find((file) => pattern.test(file));
  const [, pitch] = /_(\d+)x\d+\./.exec(name).map(Number);
  return { bytes: readFileSync(path.join(folder, name)), pitch };
}

test("numbers are those of the files", async (t) => {
  const page = await open(t, pages.scene);
  const files = { main: dumped(/_0_.*nv12$/), output: dumped(/_res_.*nv12$/) };
  const depth = dumped(/\.Y8$/);
  const row = (name) => page.locator("#values tr", { has: page.locator("th", { hasText: name }) });
  const assertNumbers = async (x, y) => {
    await page.locator("#readout", { hasText: `${x},${y}: disparity ` +
      `${depth.bytes[y * depth.pitch + x]},` }).waitFor();
    for (const [name, { bytes, pitch }] of Object.entries(files)) {
      const chroma = HEIGHT * pitch + (y >> 1) * pitch + (x & ~1);
      const cells = await row(name).locator("td").allTextContents();
      assert.deepEqual(cells.slice(0, 3).map(Number),
        [bytes[y * pitch + x], bytes[chroma], bytes[chroma + 1]], `${name} at ${x},${y}`);
    }
  };
  const box = await page.locator("#stage").boundingBox();
  await page.locator("#stage[aria-busy=false]").waitFor();
  for (const [x, y] of [[0, 0], [WIDTH - 1, HEIGHT - 1], [117, 83]]) {
    await page.mouse.move(box.x + ((x + 0.5) * box.width) / WIDTH, box.y + ((y + 0.5) * box.height) / HEIGHT);
    await assertNumbers(x, y);
  }
  await page.keyboard.press("c");
  for (const key of ["ArrowRight", "ArrowDown", "Shift+ArrowDown"]) await page.keyboard.press(key);
  await assertNumbers(118, 94);
  await page.keyboard.press("4"); // another scene, other numbers, of the same place
  assert.equal(await page.locator("#readout").textContent(), "118,94");
  assert.deepEqual(await page.locator("#values th").allTextContents(), ["", "Y", "U", "V", "R", "G", "B", "aux"]);
});

test("many pictures without pairs have keys as far as there are, and their own numbers", async (t) => {
  const page = await open(t, pages.scene);
  await page.locator("#stage[aria-busy=false]").waitFor();
  await page.evaluate(() => showData({ ...data, comparisons: [], disparity: null, depthOfField: null,
    pictures: Object.fromEntries([...Array(11).keys()].map((i) => [`photo ${i}`, data.pictures.main])) }));
  const buttons = await page.locator("#views button").allTextContents();
  assert.deepEqual([buttons[8], buttons[9]], ["9Photo 8", "Photo 9"]);
  await page.keyboard.press("9");
  await page.locator("#values th", { hasText: "photo 8" }).waitFor();
  assert.equal(await page.locator("#values tr").count(), 2);
  assert.match(await page.locator("#readout").textContent(), /^\d+,\d+$/);
  assert.match(await page.locator("#help").textContent(), / 1–9 view /);
});

test("zoom shows real pixels, and one place in all views", async (t) => {
  const page = await open(t, pages.scene);
  await page.locator("#stage[aria-busy=false]").waitFor();
  await page.keyboard.press("o");
  const box = await page.locator("#stage").boundingBox();
  const point = [box.x + (box.width * 96.5) / WIDTH, box.y + (box.height * 143.5) / HEIGHT];
  const pixel = async () => (await page.locator("#readout").textContent()).split(":")[0];
  await page.mouse.move(...point);
  const under = await pixel();
  for (let turn = 0; turn < 6; turn++) await page.mouse.wheel(0, -100);
  await page.mouse.move(point[0] + 0.2, point[1]);
  assert.equal(await pixel(), under, "what is under the pointer stays there");
  // A pixel is a square of its own colour, in each view the same one.
  const place = await page.evaluate(() => JSON.stringify(place));
  const scale = await page.evaluate(() => frame().scale);
  assert.ok(scale > 20, `scale ${scale}`);
  for (const view of ["1", "2", "5"]) {
    await page.keyboard.press(view);
    assert.equal(await page.evaluate(() => JSON.stringify(place)), place);
    const [corner, expected] = await page.evaluate(() => {
      const { left, top, scale } = frame();
      const [x, y] = pixelAt([100, 100]);
      const layer = view.layers()[0];
      const numbers = layer.picture.at(x, y);
      return [[left + x * scale, top + y * scale], numbers.length > 1 ? rgbOf(numbers) : disparityColour(numbers[0])];
    });
    const colourAt = await shown(page);
    for (const share of [0.15, 0.85]) {
      assertColour(colourAt(((corner[0] + share * scale) / box.width) * WIDTH - 0.5,
        ((corner[1] + share * scale) / box.height) * HEIGHT - 0.5), expected, `view ${view}`);
    }
  }
  await page.mouse.down();
  await page.mouse.move(point[0] + 60, point[1] + 30);
  await page.mouse.up();
  assert.equal(await pixel(), under, "a dragged picture moves along");
  await page.keyboard.press("0");
  assert.equal(await page.evaluate(() => place.zoom), 1);
  await page.mouse.dblclick(...point);
  assert.ok(await page.evaluate(() => place.zoom) > 1, "a double click zooms");
  await page.keyboard.press("f");
  const full = await page.locator("#stage").boundingBox();
  assert.ok(full.width > DESKTOP.viewport.width - 40 && full.height > box.height, JSON.stringify(full));
  await page.keyboard.press("Escape");
});

test("two fingers zoom, one pans", async (t) => {
  const page = await open(t, pages.scene, PHONE);
  await page.locator("#stage[aria-busy=false]").scrollIntoViewIfNeeded();
  const box = await page.locator("#stage").boundingBox();
  const session = await page.context().newCDPSession(page);
  const touch = (type, ...shares) => session.send("Input.dispatchTouchEvent", {
    type, touchPoints: shares.map(([x, y], id) => ({ x: box.x + box.width * x, y: box.y + box.height * y, id })),
  });
  await touch("touchStart", [0.45, 0.5]);
  await touch("touchStart", [0.45, 0.5], [0.55, 0.5]);
  for (const step of [1, 2, 3]) await touch("touchMove", [0.45 - 0.1 * step, 0.5], [0.55 + 0.1 * step, 0.5]);
  await touch("touchEnd");
  const zoomed = await page.evaluate(() => ({ ...place }));
  assert.ok(Math.abs(zoomed.zoom - 7) < 0.5 && Math.abs(zoomed.x - 0.5) < 0.02, JSON.stringify(zoomed));
  await touch("touchStart", [0.2, 0.5]); // not on the divide
  for (const y of [0.6, 0.7, 0.8]) await touch("touchMove", [0.2, y]);
  await touch("touchEnd");
  const panned = await page.evaluate(() => ({ ...place }));
  assert.ok(Math.abs(panned.y - (0.5 - 0.3 / zoomed.zoom)) < 0.02, JSON.stringify(panned));
  const mark = await edges(page, ".cursor path");
  assertNear([(mark[0] + mark[2]) / 2 / WIDTH, (mark[1] + mark[3]) / 2 / HEIGHT], [0.2, 0.8], "mark");
});

for (const [scheme, dark] of [["light", false], ["dark", true]]) {
  test(`a phone in ${scheme} mode`, async (t) => {
    const page = await open(t, pages.scene, { ...PHONE, colorScheme: scheme });
    const paper = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    assert.equal(/\d+/.exec(paper)[0] < 128, dark, paper);
    for (const button of await page.locator("#views button").all()) {
      await button.tap();
      const wide = await page.evaluate(() => document.documentElement.scrollWidth);
      assert.ok(wide <= PHONE.viewport.width, `${await button.textContent()}: ${wide}`);
      for (const control of await page.locator("button:visible, select:visible").all()) {
        assert.ok((await control.boundingBox()).height >= 40, await control.textContent());
      }
    }
  });
}

// A folder with copies of the scene's dumps, a minute apart; the last lacks its aux image.
function makeSets(folder, count) {
  const [from, to] = [path.join(material.folder, "scene"), path.join(material.folder, folder)];
  mkdirSync(to, { recursive: true });
  for (const name of readdirSync(from).filter((file) => file.startsWith("IMG_"))) {
    for (let i = 0; i < count; i++) {
      const spoiled = i === count - 1 && /_1_/.test(name);
      const copy = name.replace(/^IMG_\d+_\d+/, `IMG_20240131_12${String(i).padStart(2, "0")}00`);
      if (!spoiled) copyFileSync(path.join(from, name), path.join(to, copy));
    }
  }
}

test("a page of many shows the worst first and opens each", async (t) => {
  makeSets("many", 4);
  const file = material.report("many", 1, "inspect", "many");
  const page = await open(t, file);
  assert.equal(await page.locator("#verdict").textContent(), "1 of 4 sets is wrong");
  const tiles = page.locator(".tile:visible");
  const titles = () => tiles.locator("b").allTextContents();
  assert.deepEqual(await titles(), [3, 0, 1, 2].map((i) => `many/IMG_20240131_120${i}00`));
  assert.match(await tiles.first().textContent(), /missing.*2024-01-31 12:03:00.*320×240.*blur 100.*findings: missing/);
  const thumbnail = tiles.nth(1).locator("img");
  assert.ok(await thumbnail.evaluate((image) => image.decode().then(() => image.naturalWidth)) >= 200);

  await page.getByRole("button", { name: "Good 3" }).click();
  assert.equal(await tiles.count(), 3);
  await page.keyboard.press("/");
  await page.keyboard.type("12:02");
  assert.deepEqual(await titles(), ["many/IMG_20240131_120200"]);
  assert.match(await page.locator("#count").textContent(), /^1 of 4/);
  await page.getByLabel("Only sets with this text").fill("");
  await page.keyboard.press("ArrowDown");
  await page.keyboard.press("ArrowRight");
  assert.equal(await page.evaluate(() => document.activeElement.querySelector("b").textContent),
    "many/IMG_20240131_120100");
  const target = await page.evaluate(() => document.activeElement.getAttribute("href"));
  await page.setViewportSize({ width: 560, height: 900 });
  const columns = await tiles.evaluateAll((all) => all.findIndex((tile) => tile.offsetTop > all[0].offsetTop));
  assert.equal(columns, 2);
  await tiles.nth(columns - 1).focus();
  await page.keyboard.press("ArrowDown"); // into a shorter row
  assert.ok(await tiles.last().evaluate((tile) => tile === document.activeElement));
  const set = await open(t, path.join(path.dirname(file), decodeURIComponent(target)));
  assert.equal(await set.locator("#title").textContent(), "IMG_20240131_120100");
});

test("a replay of many is sorted by what differs most", async (t) => {
  makeSets("again", 4);
  const folder = path.join(material.folder, "again");
  const spoil = (minute, change) => {
    const file = path.join(folder, readdirSync(folder).find((name) => name.includes(`_120${minute}00_res_`)));
    const bytes = readFileSync(file);
    change(bytes);
    writeFileSync(file, bytes);
  };
  spoil(0, (bytes) => { bytes[0] ^= 1; });
  spoil(1, (bytes) => bytes.fill(90, (bytes.length * 2) / 3)); // chroma
  mkdirSync(path.join(folder, "copy"));
  for (const name of readdirSync(folder).filter((each) => each.includes("_120200_"))) {
    copyFileSync(path.join(folder, name), path.join(folder, "copy", name));
  }
  const page = await open(t, material.report("again", 2, "replay", "again", "--all", "-o", "results"),
    { ...PHONE, viewport: { width: 360, height: 740 } });
  const verdicts = () => page.locator(".tile .verdict").allTextContents();
  assert.deepEqual((await verdicts()).map((text) => text.replace(/:.*/, "")), ["unreadable",
    "differs from the dump in chroma alone", "differs from the dump in less than 0.01 % of luma, in what is blurred",
    "identical to the dump, byte for byte", "identical to the dump, byte for byte"]);
  assert.match(await page.locator(".tile").nth(1).textContent(), /PSNR \d+\.\d dB · SSIM 1\.0000/);
  assert.equal(await page.locator("#verdict").textContent(), "3 of 5 sets are wrong");
  await page.locator("#search").fill("again/copy/");
  assert.equal(await page.locator("#count").textContent(), "1 of 5 sets");
  assert.ok(await page.evaluate(() => document.documentElement.scrollWidth) <= 360);
  // Pages are made again only where they are missing.
  const sets = path.join(material.folder, "again.sets");
  const [first] = readdirSync(sets);
  const times = () => Object.fromEntries(readdirSync(sets).map((name) => [name, statSync(path.join(sets, name)).mtimeMs]));
  const before = times();
  rmSync(path.join(sets, first));
  material.report("again", 2, "replay", "again", "--all", "-o", "results");
  const changed = Object.entries(times()).filter(([name, time]) => before[name] !== time);
  assert.deepEqual(changed.map(([name]) => name), [first]);
});

test("a narrow phone breaks no word into letters", async (t) => {
  const page = await open(t, pages.scene, { ...PHONE, viewport: { width: 360, height: 740 } });
  assert.ok(await page.evaluate(() => document.documentElement.scrollWidth) <= 360);
  for (const cell of await page.locator("#sections td").all()) {
    const { width } = await cell.boundingBox();
    assert.ok(width >= 100, `${await cell.textContent()}: ${width}`);
  }
});

test("twelve megapixels", async (t) => {
  const render = ["render", "left.png", "right.png", "--size", "4000x3000", "--focus", "2000,1500"];
  const file = material.report("large", 0, ...render, "-o", "large");
  const page = await open(t, file);
  await page.waitForFunction(() => view.layers().every(({ picture }) => picture.levels[0]));
  const loaded = await page.evaluate(() => performance.now());
  await page.locator("#stage[aria-busy=false]").waitFor();
  assert.deepEqual(await page.evaluate(() => pictures.output.levels[0].map(
    ({ width, height }) => [width, height])), [[4000, 3000], [2000, 1500], [2000, 1500]]);
  material.run(0, ...render, "-o", "main", "--debug-view", "1");
  material.run(0, ...render, "-o", "aux", "--debug-view", "2");
  const sizes = ["main", "aux", "large"].map((folder) =>
    statSync(path.join(material.folder, folder, "output.png")).size);
  const [page_, pictures_] = [statSync(file).size, sizes.reduce((sum, size) => sum + size)];
  assert.ok(page_ < 1.5 * pictures_, `page ${page_}, three pictures as PNG ${pictures_}`);
  t.diagnostic(`${(page_ / 1e6).toFixed(1)} MB, pictures shown after ${Math.round(loaded)} ms, ` +
    `all numbers known after ${await page.evaluate(() => Math.round(performance.now()))} ms`);
});
