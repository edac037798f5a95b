// Texts of others that would harm where they are taken for more than texts: on every screen, in
// dialogs, announcements and titles.
import assert from "node:assert/strict";
import { test } from "node:test";

import { Console, PHONE } from "./browser.mjs";

const NAMES = ["<script>globalThis.hurt = 1</script>",
  "\"><img src=x onerror=\"globalThis.hurt = 1\">", "it's \"quoted\" & <b>bold</b>",
  "\u202egnitad\u202c left", "🎥🚗 car", "${t.title} {{7*7}} %s", "x".repeat(10_000)];
const OWN_NODES = "script:not([src]), img, b, iframe, style:not([src])";

/** What the recorder says of everything, all of it in such texts. */
function hostileFacts(tasks) {
  const [sample] = tasks;
  const now = sample.last_success;
  const amount = { files: 1, bytes: 1000 };
  const each = (build) => NAMES.map(build);
  return {
    user: NAMES[1],
    tasks: each((name, index) => ({ ...sample, id: String(index + 1), name, status: "failed",
      settings: { ...sample.settings, taskName: name, serverIP: name, username: name,
        destPath: `/${name}`, chIdxList: each((_, number) => number) },
      problems: [name], last_attempt: { ...sample.last_attempt, outcome: "failed",
        reason: name } })),
    answers: {
      "GET task/1/runs": { older: null, runs: each((reason, index) => ({ number: index + 1,
        cause: reason, started: now, ended: now + 5, outcome: "failed", reason, rate: 1,
        planned: amount, sent: amount, kept: amount, failed: amount, removed: amount })) },
      "GET task/1/runs/1": { number: 1, cause: "schedule", started: now, ended: now + 5,
        outcome: "failed", reason: "", rate: 1, planned: amount, sent: amount, kept: amount,
        failed: amount, removed: amount, rates: [],
        failures: each((file) => ({ file, reason: file })) },
      "GET log": { older: null, events: each((text, id) => ({ id, time: now, user: text,
        address: text, kind: "runs", task: text, text })) },
      "GET channel": { ret_code: 0, mesg: "", channel_list: each((name, index) => ({ name,
        guid: name, channel_index: index, ip: name, earlyest_local_time: "2026-09-01",
        earlyest_utc_times: now, connection_status: name })) },
      "POST shares": { shares: each((name) => ({ name, comment: name })) },
    },
  };
}

async function hostileConsole() {
  const one = await Console.open({ viewport: PHONE });
  const { tasks } = await one.tell();
  await one.tell(hostileFacts(tasks));
  await one.goSignedIn();
  await one.row(NAMES[0]).waitFor();
  return one;
}

/** All of them stand there as they are, and as nothing else. */
async function expectTexts(one, what, root = "main") {
  await one.page.waitForFunction(([place, names]) => names.every((name) =>
    document.querySelector(place)?.textContent.includes(name)), [root, NAMES]);
  assert.equal(await one.page.locator(OWN_NODES).count(), 0, what);
  assert.equal(await one.page.evaluate(() => globalThis.hurt), undefined, what);
  assert.match(await one.page.title(), /^[\w ]+ – Recording backup$/, what);
  await one.expectSound(what);
}

test("tasks, with who has signed in", async () => {
  const one = await hostileConsole();
  await expectTexts(one, "tasks");
  assert.equal(await one.page.locator("summary").first().textContent(), NAMES[1]);
  await one.close();
});

test("a task, its history, failed files and log", async () => {
  const one = await hostileConsole();
  await one.go("#/task/1");
  await expectTexts(one, "history", "[role=region][aria-label=History]");
  await expectTexts(one, "log", "[role=region][aria-label=Log]");
  await one.page.locator("summary", { hasText: "Failed files" }).first().click();
  await expectTexts(one, "failed files", "details ul");
  await one.close();
});

test("each step of the form", async () => {
  const one = await hostileConsole();
  await one.go("#/edit/2?step=share");
  await one.page.getByLabel("Share", { exact: true }).waitFor();
  assert.equal(await one.page.locator("[name=share]").inputValue(),
    NAMES[1].split("/")[0]);
  assert.equal(await one.page.locator("[name=server]").inputValue(), NAMES[1]);
  await one.step("Server");
  await one.page.locator("input[name=name]").fill("Front door");
  await one.page.locator("[name=server]").fill("nas.local");
  await one.page.locator("[name=user]").fill("nvr");
  await one.step("Share and folder");
  await one.page.locator("[name=share]").fill("backup");
  await one.page.locator("[name=folder]").fill("");
  await one.page.getByRole("button", { name: "List shares" }).click();
  await expectTexts(one, "shares", ".shares");
  await one.page.getByRole("button", { name: NAMES[4] }).click();
  assert.equal(await one.page.locator("[name=share]").inputValue(), NAMES[4]);
  await one.go("#/edit/5?step=cameras");
  await one.page.getByRole("button", { name: "Leave", exact: true }).click();
  await expectTexts(one, "cameras", ".cameras");
  await one.step("Review");
  await expectTexts(one, "review", ".sentence");
  await one.close();
});

test("the log, and its list of tasks", async () => {
  const one = await hostileConsole();
  await one.go("#/log");
  await expectTexts(one, "log", "tbody");
  await expectTexts(one, "tasks to choose from", "select[name=task]");
  await one.close();
});

test("the recorder", async () => {
  const one = await hostileConsole();
  await one.go("#/recorder");
  await one.page.getByRole("cell").first().waitFor();
  const facts = await one.page.evaluate(async () =>
    (await fetch("/cgi-bin/console.cgi/recorder")).json());
  await one.tell({ answers: { "GET recorder": { ...facts, version: NAMES[1],
    channels: NAMES.map((name, index) => ({ ...facts.channels[0], index, name, state: name })),
    rooms: NAMES.map((destination) => ({ ...facts.rooms[0], destination })),
    problems: NAMES.map((detail, index) => ({ ...facts.problems[0], subject: String(index + 1),
      detail })) } } });
  await one.go("#/tasks");
  await one.go("#/recorder");
  for (const place of ["[role=region][aria-label=Cameras]", ".details",
    "[role=region][aria-label^=Room]"]) {
    await expectTexts(one, place, place);
  }
  await one.close();
});

test("dialogs and announcements", async () => {
  const one = await hostileConsole();
  const dialog = one.page.getByRole("dialog");
  for (const [index, name] of NAMES.entries()) {
    const row = one.page.locator(`task-row[data-task="${index + 1}"]`);
    await one.tell({ answers: { [`POST task/${index + 1}/active`]: { ret_code: 0, mesg: "",
      has_running_task: true, isFUSE: true, taskID: "none", taskName: name } } });
    await row.getByRole("button", { name: /^Start/ }).click();
    await dialog.getByText(`“${name}” runs now.`).waitFor();
    await one.expectSound("how to start");
    await one.page.keyboard.press("Escape");
    await row.getByRole("button", { name: /^Delete/ }).click();
    await dialog.getByRole("heading", { name: `Delete “${name}”?` }).waitFor();
    await one.expectSound("delete");
    await one.page.keyboard.press("Escape");
    await dialog.waitFor({ state: "detached" });
    await one.tell({ answers: { [`POST task/${index + 1}/is_enable`]: { ret_code: 2 } } });
    await row.getByRole("switch").click();
    await one.page.getByRole("alertdialog").getByText(`“${name}” was not switched`).waitFor();
    await one.page.keyboard.press("Escape");
    await one.change(String(index + 1), { status: "success" });
    await one.poll();
    await one.page.locator(".unseen p").filter({ hasText: `${name}: Succeeded` }).first()
      .waitFor({ state: "attached" });
  }
  assert.equal(await one.page.evaluate(() => globalThis.hurt), undefined);
  await one.close();
});
