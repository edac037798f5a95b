// What polling leaves alone on every screen: the focus, whatever has it, and the nodes.
import assert from "node:assert/strict";
import { test } from "node:test";

import { Console } from "./browser.mjs";

const WAITING = { id: "7", way: "mail", recipient: "admin@example.org", subject: "Car park",
  made: 1_795_350_000, attempts: 1, next_attempt: null, last_failure: "refused" };

const SCREENS = {
  "#/tasks": (page) => page.getByRole("progressbar"),
  "#/task/1": (page) => page.getByRole("img", { name: /Rate of this run/ }),
  "#/new": (page) => page.getByLabel("Server", { exact: true }),
  "#/edit/2": (page) => page.getByLabel("Server", { exact: true }),
  "#/edit/2?step=share": (page) => page.getByLabel("Folder"),
  "#/edit/2?step=cameras": (page) => page.getByText("recordings since"),
  "#/edit/2?step=schedule": (page) => page.locator(".next li").nth(4),
  "#/edit/2?step=keeping": (page) => page.getByLabel("When the share is full"),
  "#/edit/2?step=review": (page) => page.getByLabel("Start it right after saving"),
  "#/log": (page) => page.getByText("Backup finished: 199"),
  "#/recorder": (page) => page.getByRole("cell", { name: "//nas.local/backup" }),
};
const FOCUSABLE = "main :is(a, button, input, select, summary, [tabindex='0'])";

/** Something else about the running task at every poll. */
async function news(one, percent) {
  const { tasks: [{ progress }], rates } = await one.tell();
  const [time, rate] = rates.at(-1);
  await one.change("1", { next_run: 1_795_400_000 + percent,
    progress: { ...progress, percent, rate: 1e7 + percent } });
  await one.tell({ rates: [...rates, [time + 1, rate + percent]],
    waiting: [{ ...WAITING, attempts: percent }] });
  await one.poll();
}

for (const [address, whole] of Object.entries(SCREENS)) {
  test(`polls of ${address} leave focus and nodes as they are`, async () => {
    const one = await Console.open({}, { waiting: [WAITING] });
    await one.goSignedIn();
    await one.row("Front door").getByRole("button", { name: /Start/ }).click();
    await one.row("Front door").getByRole("progressbar").waitFor();
    await one.go(address);
    await whole(one.page).first().waitFor();
    await one.page.getByText("Loading …").waitFor({ state: "detached" });
    await one.page.evaluate(() => {
      globalThis.before = [...document.querySelectorAll("main *")];
    });
    const places = await one.page.locator(FOCUSABLE).all();
    let percent = 35;
    let focused = 0;
    for (const place of places) {
      if (!(await place.isVisible())) continue;
      await place.focus();
      const node = await one.page.evaluateHandle(() => document.activeElement);
      await news(one, ++percent);
      const kept = await one.page.evaluate((had) => document.activeElement === had, node);
      assert.ok(kept, await node.evaluate((had) => had.outerHTML));
      focused += 1;
    }
    assert.ok(focused > 1, String(focused));
    const gone = await one.page.evaluate(() => globalThis.before
      .filter((node) => !node.isConnected).map((node) => node.outerHTML));
    assert.deepEqual(gone, []);
    await one.close();
  });
}

test("a task's own screen says a change of its state, once, and keeps the focus", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/task/1");
  const logged = one.page.getByText("Backup finished: 199");
  await logged.waitFor();
  const row = await logged.elementHandle();
  const button = one.page.locator("main [data-part=start]");
  await button.focus();
  const said = one.page.locator(".unseen p");
  await one.change("1", { status: "failed" });
  await one.poll();
  await one.poll();
  await one.page.getByText("Front door: Failed").waitFor({ state: "attached" });
  assert.deepEqual(await said.allTextContents(), ["Front door: Failed"]);
  await button.and(one.page.locator(":focus")).waitFor();
  await one.page.waitForFunction((node) => node.isConnected, row);
  await one.close();
});
