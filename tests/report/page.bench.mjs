// Measures how soon a page shows its picture after it is opened. Environment: as view.test.mjs.
// Arguments: a label, the page's file, the number of openings, and the target in seconds.

import { pathToFileURL } from "node:url";

import { chromium } from "playwright-core";

const [label, file, openings, target] = process.argv.slice(2);

const browser = await chromium.launch({ executablePath: process.env.CHROMIUM, args: ["--no-sandbox"] });
const seconds = [];
for (let i = 0; i < Number(openings); i++) {
  const page = await browser.newPage({ viewport: { width: 1280, height: 900 } });
  await page.addInitScript(() => {
    const draw = CanvasRenderingContext2D.prototype.drawImage;
    CanvasRenderingContext2D.prototype.drawImage = function (...values) {
      draw.apply(this, values);
      if (this.canvas.id === "picture") { // counts once the browser has put it on the screen
        requestAnimationFrame(() => setTimeout(() => { window.shown ??= performance.now(); }));
      }
    };
  });
  await page.goto(pathToFileURL(file).href, { waitUntil: "commit" });
  seconds.push(await (await page.waitForFunction(() => window.shown)).jsonValue() / 1000);
  await page.close();
}
console.log(`${label}: picture shown after ${seconds.sort((a, b) => a - b)[seconds.length >> 1].toFixed(2)} s (target ${target})`);
await browser.close();
