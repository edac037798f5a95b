// The screens of one task, the log and the recorder, the other language, and the page's weight.
import assert from "node:assert/strict";
import { readdirSync, readFileSync, statSync } from "node:fs";
import { join } from "node:path";
import { test } from "node:test";

import { Console, PAGE } from "./browser.mjs";

const BUDGET = 25_000;

for (const locale of ["en-GB", "de-DE"]) {
  test(`the first load is lighter than 25 kB, and asks nobody else: ${locale}`, async () => {
    const one = await Console.open({ locale });
    let weight = 0;
    one.page.on("response", (response) => {
      const path = new URL(response.url()).pathname;
      if (!path.startsWith("/cgi-bin/")) {
        weight += statSync(join(PAGE, `${path === "/" ? "/index.html" : path}.gz`)).size;
      }
    });
    await one.goSignedIn();
    await one.row("Front door").waitFor();
    console.log(`# the first load is ${weight} bytes`);
    assert.ok(weight > 5_000 && weight < BUDGET, String(weight));
    await one.expectSound("first load");
    await one.close();
  });
}

test("nothing in the page is written into it as script or style", () => {
  const page = readFileSync(join(PAGE, "index.html"), "utf8");
  assert.doesNotMatch(page, /<style|style=|<script(?![^>]*\ssrc=)|\son\w+=|https?:/);
  for (const name of readdirSync(join(PAGE, "assets"))) {
    assert.match(name, /-[0-9A-Z]{8}\.(js|css|svg)(\.gz)?$/);
  }
});

test("a task's screen tells its history, failed files and log, older runs on demand", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/task/2");
  const rows = one.page.getByRole("region", { name: "History" }).locator("tbody tr");
  await rows.first().waitFor();
  assert.equal(await rows.count(), 20);
  await one.page.getByText("Failed files").click();
  await one.page.getByText("Front door/2026-11-20/07-00-00.mp4: no room").waitFor();
  await one.page.getByRole("button", { name: "Older ones" }).click();
  await rows.nth(39).waitFor();
  await one.expectSound("history");
  await one.close();
});

test("a running task's rate is drawn", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/task/1");
  await one.page.getByRole("button", { name: /Start/ }).click();
  await one.page.getByText("at most 7.4 MB/s", { exact: true }).waitFor();
  await one.page.getByRole("img", { name: /Rate of this run/ }).waitFor();
  await one.expectSound("rate");
  await one.close();
});

test("the log's filters live in the address, and its file has the same ones", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/log?text=finished%3A+19&from=2026-10-20");
  await one.page.getByText("Backup finished: 199").waitFor();
  assert.equal(await one.page.locator("tbody tr").count(), 11);
  assert.equal(await one.page.getByLabel("From").inputValue(), "2026-10-20");
  const href = await one.page.getByRole("link", { name: "Download as CSV" }).getAttribute("href");
  const query = new URL(href, one.url).searchParams;
  assert.equal(query.get("text"), "finished: 19");
  assert.equal(query.get("from"), String(Date.parse("2026-10-20T00:00:00+02:00") / 1000));
  await one.page.getByLabel("Search").fill("");
  await one.page.getByLabel("From").fill("");
  await one.page.getByRole("button", { name: "Search" }).click();
  await one.page.getByRole("button", { name: "Older ones" }).click();
  await one.page.getByText("Backup finished: 100", { exact: true }).waitFor();
  assert.equal(await one.page.locator("tbody tr").count(), 100);
  await one.page.goBack();
  await one.page.waitForFunction(() =>
    document.querySelector("[name=text]").value === "finished: 19");
  await one.close();
});

test("the recorder's screen tells what is wrong, and of whom", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/recorder");
  await one.page.getByText("The newest run of “Car park” failed: the share is full (since")
    .waitFor();
  await one.page.getByText("What to do: make room").waitFor();
  await one.page.getByRole("cell", { name: "disconnected" }).waitFor();
  await one.page.getByRole("cell", { name: "4 TB" }).waitFor();
  await one.close();
});

test("a calendar shows a month's days and troubles under its own name alone", async () => {
  const one = await Console.open();
  await one.page.clock.install();
  await one.goSignedIn("#/edit/1?step=cameras");
  await one.page.getByText("Days", { exact: true }).first().click();
  const caption = one.page.locator("caption");
  const marked = one.page.locator(".calendar td.recordings");
  const trouble = one.page.locator(".calendar").getByText("The recorder does not answer.");
  await marked.first().waitFor();
  await one.stopClock();
  const held = [];
  await one.page.route("**/days?*", (route) => held.push(route));
  const turned = async (name, month) => {
    const asked = one.page.waitForRequest(/days\?/);
    await one.page.getByRole("button", { name }).click();
    await asked;
    await caption.filter({ hasText: month }).waitFor();
  };
  await turned("Month before", "October 2026");
  assert.equal(await marked.count(), 0);
  await turned("Month before", "September 2026");
  const [october, september] = held;
  await september.continue();
  await marked.first().waitFor();
  const lost = one.page.waitForEvent("requestfailed");
  await october.abort();
  await lost;
  await one.poll();
  assert.equal(await trouble.count(), 0);
  await turned("Month before", "August 2026");
  await held[2].abort();
  await trouble.waitFor();
  await turned("Month after", "September 2026");
  assert.equal(await trouble.count(), 0);
  await one.close();
});

test("a German browser reads German, and everybody may choose", async () => {
  const one = await Console.open({ locale: "de-DE" });
  await one.go();
  await one.page.getByRole("button", { name: "Anmelden" }).waitFor();
  await one.page.getByLabel("Name").fill("admin");
  await one.page.getByLabel("Passwort").fill("right");
  await one.page.keyboard.press("Enter");
  await one.page.getByText("1 braucht Sie: Car park").waitFor();
  await one.page.getByText(/Zeit des Rekorders: \d\d:\d\d, Europe\/Berlin/).waitFor();
  await one.row("Car park").getByText("Was zu tun ist: schaffen Sie Platz, verkürzen").waitFor();
  await one.expectSound("German");
  await one.go("#/recorder");
  await one.page.getByText(/gescheitert.* Was zu tun ist: schaffen Sie Platz, verkürzen/).waitFor();
  await one.go("#/tasks");
  await one.page.getByText("admin", { exact: true }).click();
  await one.page.getByLabel("Sprache").selectOption("English");
  await one.page.getByText("1 needs you: Car park").waitFor();
  assert.equal(await one.page.locator("html").getAttribute("lang"), "en");
  await one.close();
});

test("times are the recorder's, wherever the browser is", async () => {
  const shown = [];
  for (const timezoneId of ["America/Los_Angeles", "Asia/Tokyo"]) {
    const one = await Console.open({ timezoneId });
    await one.goSignedIn();
    const next = one.row("Front door").locator("[data-part=next]");
    await next.waitFor();
    shown.push([await next.textContent(), await next.getAttribute("title")]);
    await one.close();
  }
  assert.deepEqual(shown[0], shown[1]);
  assert.match(shown[0][1], /Europe\/Berlin/);
});

test("colours are the system's until somebody chooses", async () => {
  const one = await Console.open({ colorScheme: "dark" });
  await one.goSignedIn();
  const back = () => one.page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  const dark = await back();
  await one.page.getByText("admin", { exact: true }).click();
  await one.page.getByLabel("Colours").selectOption("light");
  const light = await back();
  assert.notEqual(light, dark);
  await one.page.reload();
  await one.page.getByRole("banner").waitFor();
  assert.equal(await back(), light);
  await one.close();
});
