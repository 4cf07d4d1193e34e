// SPDX-License-Identifier: Apache-2.0
// page_test.js CHROMIUM REPORTS SCREENSHOTS: what a reader of the reports does, in a browser.
"use strict";
const assert = require("node:assert");
const path = require("node:path");
const { chromium } = require("playwright-core");

const [program, reports, screenshots] = process.argv.slice(2);
const LAPTOP = { width: 1366, height: 900 };
const PHONE = { width: 360, height: 740 };

const hidden = (page) => page.locator("#details").isHidden();
const details = (page) => page.locator("#details").textContent();
const range = (page) => page.locator("#range").textContent();
const shown = async (page) => {
  const [from, to] = (await range(page)).split(" \u2013 ").map(parseFloat);
  return to - from;
};

// A page with nothing to complain of: no error, no message, no request but for itself.
async function open(browser, name, options) {
  const context = await browser.newContext(options);
  const page = await context.newPage();
  const file = "file://" + path.join(reports, name + ".html");
  page.setDefaultTimeout(60000);
  page.complaints = [];
  page.on("console", (message) => page.complaints.push(message.text()));
  page.on("pageerror", (error) => page.complaints.push(error.message));
  page.on("request", (request) => {
    if (request.url() !== file && !request.url().startsWith("data:")) {
      page.complaints.push("request for " + request.url());
    }
  });
  await page.goto(file);
  return page;
}

// Every text against what is behind it, as far as that is a colour. In the page.
function poorContrasts() {
  const channels = (colour) => colour.match(/[\d.]+/g).map(Number);
  const light = (colour) => {
    const [r, g, b] = channels(colour).map((value) => {
      const share = value / 255;
      return share <= 0.03928 ? share / 12.92 : Math.pow((share + 0.055) / 1.055, 2.4);
    });
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
  };
  const behind = (element) => {
    const colour = getComputedStyle(element).backgroundColor;
    return channels(colour)[3] === 0 ? behind(element.parentElement) : colour;
  };
  const poor = new Set();
  for (const element of document.querySelectorAll("body *")) {
    const own = Array.from(element.childNodes).some((n) => n.nodeType === 3 && n.data.trim());
    if (!own || element.getClientRects().length === 0) continue;
    const two = [light(getComputedStyle(element).color), light(behind(element))].sort();
    const ratio = (Math.max(...two) + 0.05) / (Math.min(...two) + 0.05);
    if (ratio < 4.5) poor.add(`${element.className || element.tagName} ${ratio.toFixed(2)}`);
  }
  return Array.from(poor);
}

async function looksRight(browser) {
  const table = [
    ["update", LAPTOP, "light"], ["update", PHONE, "dark"], ["noflash", LAPTOP, "dark"],
    ["faults", LAPTOP, "light"], ["faults", PHONE, "light"], ["failing", LAPTOP, "dark"],
    ["failing", PHONE, "light"],
  ];
  for (const [name, viewport, colorScheme] of table) {
    const page = await open(browser, name, { viewport, colorScheme });
    const what = `${name}-${viewport.width}-${colorScheme}`;
    await page.screenshot({ path: path.join(screenshots, what + ".png"), fullPage: true });
    const width = await page.evaluate(() => document.documentElement.scrollWidth);
    assert.ok(width <= viewport.width, `${what} is ${width} pixels wide`);
    assert.deepStrictEqual(await page.evaluate(poorContrasts), [], what);
    assert.deepStrictEqual(page.complaints, [], what);
    await page.context().close();
  }
}

async function tellsVerdictAndWhatLedToIt(browser) {
  const page = await open(browser, "failing", { viewport: LAPTOP });
  assert.strictEqual(await page.title(), "FAIL update \u2013 marlo-sim");
  const why = "expected load after soft reset; got load fails";
  assert.strictEqual(await page.locator("#why").textContent(), why);
  assert.strictEqual(await page.locator("li.failed .reason").textContent(), why);
  assert.ok(await page.locator("li.met").count() > 10);
  assert.strictEqual(await page.locator("li.not-met").count() > 0, true);
  assert.match(await page.locator("#lanes").textContent(), /flash-load-fails, occasion 1/);
  await page.context().close();
}

async function transfersHaveRates(browser) {
  const page = await open(browser, "noflash", { viewport: LAPTOP });
  const rows = page.locator("#transfers tbody tr");
  assert.strictEqual(await rows.count(), 2);
  assert.match(await rows.nth(0).textContent(), /Bluetooth firmware.*69,361 bytes.*[0-9] k?M?B\/s\u2713 finished/);
  await page.context().close();
}

async function zoomsAndPans(browser) {
  const page = await open(browser, "update", { viewport: LAPTOP });
  const whole = await shown(page);
  const wholeRange = await range(page);
  const box = await page.locator(".lane.protocol .track").first().boundingBox();
  await page.mouse.move(box.x + box.width * 0.4, box.y + 8);
  await page.mouse.wheel(0, -600);
  await page.waitForFunction((text) => document.getElementById("range").textContent !== text,
                             wholeRange);
  assert.ok(await shown(page) < whole / 2, "the wheel zooms in");
  await page.locator(".lane").first().focus();
  await page.keyboard.press("0");
  assert.strictEqual(await range(page), wholeRange);
  for (let i = 0; i < 5; ++i) await page.keyboard.press("+");
  const close = await range(page);
  assert.ok(await shown(page) < whole / 2, "+ zooms in");
  await page.keyboard.press("ArrowRight");
  assert.notStrictEqual(await range(page), close, "an arrow moves");
  await page.keyboard.press("ArrowLeft");
  assert.strictEqual(await range(page), close);
  await page.mouse.move(box.x + 500, box.y + 8);
  await page.mouse.down();
  await page.mouse.move(box.x + 200, box.y + 8, { steps: 4 });
  await page.mouse.up();
  assert.notStrictEqual(await range(page), close, "dragging moves");
  await page.mouse.move(5, 5);
  assert.ok(await hidden(page), "the end of a drag is no click");
  await page.locator("#whole").click();
  assert.ok(await page.locator(".fold").count() > 0);
  await page.locator("#fold").uncheck();
  assert.strictEqual(await page.locator(".fold").count(), 0);
  const part = await page.evaluate(() => document.getElementById("window").style.width);
  assert.strictEqual(part, "100%", "still the whole run");
  assert.deepStrictEqual(page.complaints, []);
  await page.context().close();
}

async function tellsWhatIsPointedAtOrFocused(browser) {
  // The flash's rate has the images take long enough to be seen on any machine.
  const page = await open(browser, "faults", { viewport: LAPTOP });
  const image = page.locator(".span", { hasText: "flash.bin (1)" });
  await image.hover();
  assert.match(await details(page), /^flash\.bin \(1\).*122,880 bytes, .*B\/s/);
  await page.mouse.move(5, 5);
  assert.ok(await hidden(page), "what was only pointed at goes away");
  await image.click();
  await page.mouse.move(5, 5);
  assert.ok(!await hidden(page), "a click keeps it");
  await page.keyboard.press("Escape");
  assert.ok(await hidden(page));

  const commands = page.locator(".lane", { hasText: "Commands" });
  await commands.focus();
  await page.keyboard.press(".");
  assert.match(await details(page), /get boot mode FLASH/);
  // How many are drawn as one is a matter of how fast the machine was.
  let steps = 1;
  for (; steps < 40 && !(await details(page)).includes("set boot mode FLASH"); ++steps) {
    await page.keyboard.press(".");
  }
  assert.ok(steps > 1 && steps < 40, `${steps} steps`);
  await page.keyboard.press("+");
  assert.match(await page.evaluate(() => document.activeElement.className), /thing/,
               "zooming keeps the focus");
  await page.keyboard.press("Escape");
  assert.ok(await hidden(page));
  await page.keyboard.press("ArrowDown");
  assert.match(await page.evaluate(() => document.activeElement.textContent), /^Properties/);
  await page.context().close();
}

async function zoomsWithTwoFingers(browser) {
  const page = await open(browser, "update", { viewport: PHONE, hasTouch: true, isMobile: true });
  const whole = await shown(page);
  const lane = page.locator(".lane.protocol .track").first();
  await lane.scrollIntoViewIfNeeded();
  const { y } = await lane.boundingBox();
  const session = await page.context().newCDPSession(page);
  const touch = (type, ...xs) => session.send("Input.dispatchTouchEvent", {
    type, touchPoints: xs.map((x, id) => ({ x, y: y + 5, id })) });
  await touch("touchStart", 150, 200);
  for (let by = 10; by <= 90; by += 20) await touch("touchMove", 150 - by, 200 + by);
  await touch("touchEnd");
  assert.ok(await shown(page) < whole / 2, `two fingers zoom in: ${await range(page)}`);
  await page.locator("#whole").tap();
  await page.locator(".span", { hasText: "HOST" }).tap();
  const box = await page.locator("#details").boundingBox();
  assert.ok(box.y > PHONE.height / 2 && box.x + box.width <= PHONE.width, "below, and all of it");
  await page.context().close();
}

async function findsLines(browser) {
  const page = await open(browser, "update", { viewport: LAPTOP });
  await page.locator("#find").fill("finished. ###");
  const rows = page.locator("#log tbody tr");
  const found = await rows.locator(".text").allTextContents();
  assert.ok(found.length > 0 && found.every((text) => text.includes("finished. ###")), found);
  assert.match(await page.locator("#found").textContent(), new RegExp(`^${found.length} line`));
  const when = rows.first().locator("button");
  await when.click();
  const cursor = await page.locator("#cursor").textContent();
  assert.ok(Math.abs(parseFloat(cursor) - parseFloat(await when.textContent())) < 1e-3, cursor);
  assert.ok(await page.locator("#cursor").isVisible(), "its time is shown");
  await page.locator("#find").fill("");
  await page.locator("#level").selectOption("");
  const levels = await page.locator("#log td.level").allTextContents();
  assert.ok(levels.length > 0 && levels.every((level) => !"VDI".includes(level)));
  await page.context().close();
}

async function main() {
  const browser = await chromium.launch({ executablePath: program, args: ["--no-sandbox"] });
  for (const test of [looksRight, tellsVerdictAndWhatLedToIt, transfersHaveRates, zoomsAndPans,
                      tellsWhatIsPointedAtOrFocused, zoomsWithTwoFingers, findsLines]) {
    console.log(test.name);
    await test(browser);
  }
  await browser.close();
}

main().catch((error) => {
  console.error(error);
  process.exit(1);
});
