// What the form of a task makes of what is filled in: what is sent, and what it leaves as it is.
import assert from "node:assert/strict";
import { test } from "node:test";

import { Console } from "./browser.mjs";

const field = (one, name) => one.page.getByLabel(name, { exact: true });
const press = (name) => (one) => one.page.getByRole("button", { name, exact: true }).click();
const save = press("Save");
const next = press("Next");
const sent = async (one) => (await one.tell()).requests;
/** Has the first request that saves something there meet this. */
async function meet(one, path, what) {
  let met = false;
  await one.page.route(path, (route) => {
    if (met || route.request().method() === "GET") return route.fallback();
    met = true;
    return what(route);
  });
}
const lost = (route) => route.abort();
const answerLost = async (route) => {
  await route.fetch();
  await route.abort();
};
const invalid = (one) => one.page.locator("[aria-invalid=true]").evaluateAll((inputs) =>
  inputs.map(({ name }) => name));

test("a new task from an empty form, cameras and calendar included", async () => {
  const one = await Console.open({}, { tasks: [] });
  await one.goSignedIn("#/new");
  await next(one);
  assert.deepEqual(await invalid(one), ["name", "server", "user"]);
  await one.expectSound("refused");
  await field(one, "Name of the task").fill("Night copies");
  await field(one, "Server").fill("nothing.local");
  await field(one, "Account").fill("nvr");
  await one.page.getByRole("button", { name: "Try to sign in" }).click();
  await one.page.locator(".field .trouble", { hasText: "No file server answers" }).waitFor();
  assert.deepEqual(await invalid(one), ["server"]);
  await field(one, "Server").fill("nas.local");
  await field(one, "Password").fill("s3cret");
  await one.page.getByRole("button", { name: "Try to sign in" }).click();
  await one.page.getByText("It works: this account sees 2 shares.").waitFor();
  await next(one);
  await one.page.getByRole("button", { name: "backup Copies" }).click();
  assert.equal(await field(one, "Share").inputValue(), "backup");
  await field(one, "Folder").fill("cameras/night");
  await one.expectSound("shares");
  await next(one);
  await next(one);
  await one.page.getByText("Choose at least one camera.").waitFor();
  await one.page.getByRole("checkbox", { name: /Car park/ }).check();
  await one.page.getByText("Days", { exact: true }).first().click();
  await one.page.getByText("recordings, alarms").first().waitFor({ state: "attached" });
  await one.expectSound("calendar");
  await next(one);
  await one.page.locator("[name=schedule]").selectOption("weekly");
  await one.page.getByLabel("Day", { exact: true }).selectOption({ label: "Sunday" });
  await next(one);
  await next(one);
  await one.page.getByText("Every Sunday at 02:30 copies Car park, the last 7 days, as MP4, to "
    + "//nas.local/backup/cameras/night.").waitFor();
  await save(one);
  await one.row("Night copies").waitFor();
  assert.deepEqual(await sent(one), [["PUT", "task", {
    taskName: "Night copies", serverIP: "nas.local", port: 445, username: "nvr",
    password: "s3cret", destPath: "/backup/cameras/night", chIdxList: [3],
    backupType: "BackupByLastDay", backupDays: 7, recordingType: "recording_and_alarm",
    recordingFormat: "mp4", scheduleType: "weekly", scheduleWeekly: 7, scheduleHour: 2,
    scheduleMin: 30, scheduleEveryHours: 6, remoteKeepRec: false, remoteKeepRecDays: 0,
    remoteOverwriteType: "stop_overwrite", backupImmediately: false }]]);
  await one.close();
});

test("values are judged where they stand, by the recorder's rules", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/1");
  const refused = async (name, value, words) => {
    await field(one, name).fill(value);
    await field(one, name).blur();
    await one.page.getByText(words).filter({ visible: true }).waitFor();
  };
  await refused("Name of the task", 'the "old" one', "Quotation marks cannot be kept.");
  await refused("Name of the task", "ä".repeat(128), "At most 255 bytes are kept.");
  await refused("Name of the task", "a\tb", "Tabs and other control characters");
  await refused("Server", "nas local", "neither spaces nor slashes");
  await field(one, "Name of the task").fill("ä".repeat(127));
  await field(one, "Port").fill("0");
  await field(one, "Port").blur();
  assert.deepEqual(await invalid(one), ["server", "port"]);
  await field(one, "Server").fill("nas.local");
  await field(one, "Port").fill("445");
  await one.step("Share and folder");
  await refused("Folder", "what?", "A path has none of these");
  await refused("Share", "backup/cameras", "A share’s name has no slash");
  await field(one, "Share").fill("s".repeat(200));
  await refused("Folder", "f".repeat(60), "At most 255 bytes are kept.");
  await field(one, "Share").fill("backup");
  assert.deepEqual(await invalid(one), []);
  await one.step("Cameras");
  await field(one, "How many days, up to today").fill("100");
  await field(one, "How many days, up to today").blur();
  await one.page.getByLabel("Days to copy").selectOption("BackupByTimeRange");
  await field(one, "From").fill("2026-11-02");
  await refused("To", "2026-11-01", "It ends before it begins.");
  await one.close();
});

test("a changed task keeps its password and stays switched off", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/3");
  await field(one, "Name of the task").fill("Back yard");
  await one.step("Review");
  await one.page.getByText("This task is switched off and stays so.").waitFor();
  assert.equal((await one.page.content()).includes("stored\""), false);
  await save(one);
  await one.row("Back yard").getByText("Switched off").waitFor();
  const requests = await sent(one);
  assert.deepEqual(requests.map(([method, path]) => [method, path]),
    [["POST", "task/3"], ["POST", "task/3/is_enable"]]);
  assert.equal(requests[0][2].password, "stored");
  assert.equal((await one.tell()).tasks[2].enabled, false);
  await one.close();
});

test("a task whose switching off was lost is switched off by saving again", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/3");
  await field(one, "Name of the task").fill("Back yard");
  await meet(one, "**/task/3/is_enable", lost);
  await save(one);
  await one.page.getByText("It is saved, but switching the task off has failed").waitFor();
  assert.equal((await one.tell()).tasks[2].enabled, true);
  await one.poll();
  assert.equal(await one.page.getByText("the task was changed").count(), 0);
  await save(one);
  await one.row("Back yard").getByText("Switched off").waitFor();
  assert.equal((await one.tell()).tasks[2].enabled, false);
  await one.close();
});

test("a task that was saved without an answer is nobody else's change, and stays off", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/3");
  await field(one, "Name of the task").fill("Back yard");
  await meet(one, "**/task/3", answerLost);
  await save(one);
  await one.page.getByText("It may be saved all the same, and the task switched on.").waitFor();
  await field(one, "Name of the task").fill("Back garden");
  await save(one);
  await one.row("Back garden").getByText("Switched off").waitFor();
  await one.close();
});

test("a task that is stored with a failure stays switched off, too", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/3");
  await meet(one, "**/task/3", async (route) => {
    await route.fetch();
    await route.fulfill({ json: { ret_code: 0x950a0022, mesg: "" } });
  });
  await save(one);
  await one.page.getByText("What was to be stored is stored").waitFor();
  assert.equal((await one.tell()).tasks[2].enabled, false);
  await one.close();
});

test("what the form does not take is not replaced in silence", async () => {
  const one = await Console.open();
  const { tasks } = await one.tell();
  await one.change("1", { settings: { ...tasks[0].settings, backupDays: 0, remoteKeepRecDays: 0,
    scheduleHour: 25 } });
  await one.goSignedIn("#/edit/1");
  for (const [name, value] of [["days", "7"], ["time", "02:30"], ["keepDays", "30"]]) {
    await save(one);
    assert.deepEqual(await invalid(one), [name]);
    await one.page.locator(`[name=${name}]`).and(one.page.locator(":focus")).fill(value);
  }
  assert.deepEqual(await sent(one), []);
  await one.close();
});

test("a new password is sent when somebody gives one", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/1");
  await one.page.getByLabel("Use the password that is stored").uncheck();
  await field(one, "Password").fill("another");
  await save(one);
  await one.row("Front door").waitFor();
  assert.equal((await one.tell()).passwords[1], "another");
  await one.close();
});

test("a task that somebody else has changed is not overwritten in silence", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/1");
  await field(one, "Name of the task").fill("Mine");
  const { tasks } = await one.tell();
  await one.change("1", { revision: "2", name: "Theirs",
    settings: { ...tasks[0].settings, taskName: "Theirs" } });
  await save(one);
  const dialog = one.page.getByRole("dialog");
  await dialog.getByText("Somebody else has changed this task").waitFor();
  assert.deepEqual(await sent(one), []);
  await dialog.getByRole("button", { name: "Cancel" }).click();
  assert.equal(await field(one, "Name of the task").inputValue(), "Mine");
  await save(one);
  await dialog.getByRole("button", { name: "Show the new settings" }).click();
  await one.page.waitForFunction(() =>
    document.querySelector("input[name=name]")?.value === "Theirs");
  await field(one, "Name of the task").fill("Agreed");
  await save(one);
  await one.row("Agreed").waitFor();
  await one.close();
});

test("a duplicate is a new task that takes the password along", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/duplicate/1");
  assert.equal(await field(one, "Name of the task").inputValue(), "Front door (copy)");
  await save(one);
  await one.row("Front door (copy)").waitFor();
  const [[method, path, body]] = await sent(one);
  assert.deepEqual([method, path, body.password], ["PUT", "task", "stored"]);
  await one.close();
});

test("a new task whose answer was lost is not made twice", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/duplicate/1");
  await meet(one, "**/task", answerLost);
  await save(one);
  await one.page.getByText("The task may have been made all the same.").waitFor();
  await field(one, "Name of the task").fill("Back door");
  await save(one);
  await one.row("Back door").waitFor();
  const { tasks, requests } = await one.tell();
  assert.deepEqual(tasks.map(({ name }) => name),
    ["Front door", "Car park", "Yard", "Gate", "Back door"]);
  assert.deepEqual(requests.map(([method, path]) => [method, path]),
    [["PUT", "task"], ["POST", "task/5"]]);
  await one.close();
});

test("a new task that did not arrive is made by saving again, beside one like it", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/duplicate/1");
  await save(one);
  await one.row("Front door (copy)").waitFor();
  await one.page.evaluate(() => (location.hash = "#/duplicate/1"));
  await meet(one, "**/task", lost);
  await save(one);
  await one.page.getByText("The task may have been made all the same.").waitFor();
  await save(one);
  await one.row("Front door (copy)").nth(1).waitFor();
  assert.equal((await one.tell()).tasks.length, 6);
  await one.close();
});

test("a refused form stays as it was filled", async () => {
  const one = await Console.open();
  await one.goSignedIn("#/edit/1");
  await field(one, "Name of the task").fill("Kept");
  await one.tell({ silent: true });
  await save(one);
  await one.page.getByText("Whatever you have filled in is still here.").waitFor();
  assert.equal(await field(one, "Name of the task").inputValue(), "Kept");
  await one.close();
});
