// The screen of tasks: what it says, that it stays itself while it is polled, and what it can do.
import assert from "node:assert/strict";
import { test } from "node:test";

import { Console } from "./browser.mjs";

const PROGRESS = { percent: 50, rate: 1e7, seconds_left: null, files_done: 1, files_left: 1,
  bytes_done: 5e8, bytes_left: 5e8, message: "" };

const SILENT = "the backup daemon does not answer: nothing is copied, and no schedule is kept";

/** Those requests that act, without the polling between them. */
const acts = async (one) => (await one.tell()).requests;

test("by keyboard alone from the sign-in to a running backup", async () => {
  const one = await Console.open();
  await one.go();
  await one.page.getByLabel("Name").and(one.page.locator(":focus")).waitFor();
  await one.page.keyboard.type("admin");
  await one.page.keyboard.press("Tab");
  await one.page.keyboard.type("right");
  await one.page.keyboard.press("Enter");
  await one.row("Front door").waitFor();
  const start = one.page.locator(":focus", { hasText: "Start" });
  for (let step = 0; step < 60 && (await start.count()) === 0; ++step) {
    await one.page.keyboard.press("Tab");
  }
  await one.page.keyboard.press("Enter");
  await one.page.getByRole("progressbar").waitFor();
  assert.deepEqual((await acts(one)).map(([method, path]) => [method, path]),
    [["POST", "task/2/active"]]); // the one that needs somebody stands first
  assert.match(await one.page.locator(":focus").textContent(), /Stop/);
  await one.close();
});

test("the headline says the one thing that matters", async () => {
  const one = await Console.open();
  await one.goSignedIn();
  const heading = one.page.getByRole("heading", { level: 1 });
  const says = (text) => heading.filter({ hasText: text }).waitFor();
  await says("1 needs you: Car park: no copy since Tuesday: the share is full");
  await one.change("2", { problems: [] });
  await one.poll();
  await says("Not yet safe: Gate waits for its first run (due soon)");
  await one.page.getByText("1 task is disabled").waitFor();
  await one.change("1", { missing: "was changed since its last success" });
  await one.poll();
  await says("Not yet safe: 2 of 3 tasks");
  await one.page.getByText("Front door was changed since its last success").waitFor();
  await one.change("1", { missing: null });
  await one.change("4", { missing: null, last_success: 1 });
  await one.poll();
  await says("3 tasks are safe");
  const { tasks } = await one.tell();
  await one.tell({ tasks: tasks.slice(0, 2), notes: [] });
  await one.poll();
  await says("All 2 tasks are safe");
  await one.tell({ problems: ["the backup service does not run", "the disk is nearly full"] });
  await one.poll();
  await says("2 need you");
  await one.tell({ tasks: [], problems: [] });
  await one.poll();
  await says("No recording is copied yet");
  await one.expectSound("without tasks");
  await one.page.getByRole("main").getByRole("link", { name: "New task" }).first().click();
  await heading.filter({ hasText: "New task" }).waitFor();
  await one.close();
});

test("polls keep nodes, focus and selection; a change of state is said once, progress never",
  async () => {
    const one = await Console.open();
    await one.goSignedIn();
    const row = one.row("Front door");
    await row.getByRole("button", { name: /Start/ }).focus();
    await one.page.evaluate(() => {
      globalThis.before = [...document.querySelectorAll("main *")];
      globalThis.said = [];
      new MutationObserver((changes) => changes.forEach(({ addedNodes }) =>
        addedNodes.forEach((node) => globalThis.said.push(node.textContent))))
        .observe(document.body, { subtree: true, childList: true });
      const place = document.querySelector(".place");
      getSelection().selectAllChildren(place);
    });
    const selected = await one.page.evaluate(() => String(getSelection()));
    await one.change("1", { status: "running", progress: PROGRESS });
    await one.poll();
    await row.getByText("50%").waitFor();
    for (const percent of [60, 70]) {
      await one.change("1", { status: "running", progress: { ...PROGRESS, percent } });
      await one.poll();
      await row.getByText(`${percent}%`).waitFor();
    }
    assert.match(await one.page.locator(":focus").textContent(), /Stop/);
    assert.equal(await one.page.evaluate(() => String(getSelection())), selected);
    assert.equal(await one.page.evaluate(() =>
      globalThis.before.every((node) => node.isConnected)), true);
    const said = await one.page.evaluate(() =>
      globalThis.said.filter((text) => text.startsWith("Front door")));
    assert.deepEqual(said, ["Front door: Running"]);
    await one.close();
  });

test("rows that change their places keep the focus", async () => {
  const one = await Console.open();
  await one.goSignedIn();
  await one.row("Yard").getByRole("button", { name: /Duplicate|Delete/ }).first().focus();
  const focused = await one.page.evaluateHandle(() => document.activeElement);
  await one.change("3", { problems: ["nothing was copied"] });
  await one.poll();
  await one.page.getByText("nothing was copied").last().waitFor();
  assert.equal(await one.page.evaluate((node) => document.activeElement === node, focused), true);
  await one.close();
});

test("nothing is called safe, in words or in colour, that the recorder does not", async () => {
  const one = await Console.open();
  const { tasks } = await one.tell();
  const [task] = tasks;
  const troubles = { problems: { problems: ["its last run failed"] },
    missing: { missing: "has not succeeded since Sunday" }, unread: { last_success: null } };
  await one.tell({ tasks: [task] });
  await one.goSignedIn();
  await one.page.locator("h1[data-tone=good]", { hasText: "The one task is safe" }).waitFor();
  await one.row("Front door").locator("[data-part=state][data-tone=good]").waitFor();
  for (const [name, trouble] of Object.entries(troubles)) {
    const problems = name === "unread" ? ["the history cannot be read"] : [];
    await one.tell({ tasks: [{ ...task, ...trouble }], problems });
    await one.poll();
    await one.row("Front door").locator("[data-part=state][data-tone=calm]").waitFor();
    assert.doesNotMatch(await one.page.locator("h1").textContent(), /(is|are) safe/, name);
    assert.notEqual(await one.page.locator("h1").getAttribute("data-tone"), "good", name);
  }
  await one.close();
});

test("a row says what to do in the recorder's words, and what is to be known", async () => {
  const one = await Console.open();
  await one.goSignedIn();
  await one.row("Car park").getByText("What to do: make room").waitFor();
  await one.row("Gate").getByText("it waits for its first run").waitFor();
  await one.change("2", { problems: [], remedies: [], enabled: false });
  await one.poll();
  await one.row("Car park").getByText("What to do: make room").waitFor();
  await one.change("2", { problems: [], remedies: [], last_attempt: null });
  await one.poll();
  await one.row("Car park").getByText("What to do").waitFor({ state: "hidden" });
  await one.close();
});

for (const { locale, told } of [
  { locale: "en-GB", told: {
    remedy: "What to do: make room, shorten \"remoteKeepRecDays\", or choose \"overwrite\";"
      + " sing a song",
    problem: "no camera is chosen it sleeps", note: "its time range has ended; it yawns",
    silent: "the backup daemon does not answer: nothing is copied, and no schedule is kept" } },
  { locale: "de-DE", told: {
    remedy: "Was zu tun ist: schaffen Sie Platz, verkürzen Sie „remoteKeepRecDays“, oder wählen"
      + " Sie „overwrite“; sing a song",
    problem: "keine Kamera ist ausgewählt it sleeps", note: "ihr Zeitraum ist vorbei; it yawns",
    silent: "der Sicherungsdienst antwortet nicht: nichts wird kopiert und kein Zeitplan"
      + " eingehalten" } }]) {
  test(`what the recorder says is told in ${locale} if it is known, and as it comes if not`,
    async () => {
      const one = await Console.open({ locale }, { problems: [SILENT],
        services: { backup: false, log: true } });
      const { tasks: [, failed] } = await one.tell();
      await one.change("2", { remedies: [...failed.remedies, "sing a song"],
        problems: ["no camera is chosen", "it sleeps"],
        notes: ["its time range has ended", "it yawns"] });
      await one.goSignedIn();
      const row = one.row("Car park");
      await row.waitFor();
      for (const part of ["remedy", "problem", "note"]) {
        assert.equal(await row.locator(`[data-part=${part}]`).textContent(), told[part]);
      }
      const [first, second] = await one.page.locator(".details li").allTextContents();
      assert.equal(first, told.silent);
      assert.equal(`${second} it sleeps`, `Car park: ${told.problem}`);
      await one.tell({ tasks: [] });
      await one.poll();
      await row.waitFor({ state: "detached" });
      assert.deepEqual(await one.page.locator(".details li").allTextContents(), [told.silent]);
      await one.close();
    });
}

for (const [answer, body, after] of [
  ["Queue", { is_force_running: false, is_parallel_running: false }, "Waiting, place 1"],
  ["Start beside it", { is_force_running: false, is_parallel_running: true }, "Running"],
  ["Start in its place", { is_force_running: true, is_parallel_running: false }, "Running"]]) {
  test(`a start while something runs asks how: ${answer}`, async () => {
    const one = await Console.open();
    await one.goSignedIn();
    await one.row("Front door").getByRole("button", { name: /Start/ }).click();
    await one.row("Front door").getByRole("progressbar").waitFor();
    await one.row("Gate").getByRole("button", { name: /Start/ }).click();
    const dialog = one.page.getByRole("dialog");
    await dialog.getByText("“Front door” runs now.").waitFor();
    await one.expectSound("how to start");
    await dialog.getByRole("button", { name: answer, exact: true }).click();
    await one.row("Gate").getByText(after, { exact: true }).waitFor();
    assert.deepEqual((await acts(one)).pop(), ["POST", "task/4/active/enforcement", body]);
    await one.close();
  });
}

test("stop and delete say what is lost and what stays, and Escape does neither", async () => {
  const one = await Console.open();
  await one.goSignedIn();
  const row = one.row("Front door");
  await row.getByRole("button", { name: /Start/ }).click();
  const stop = one.idle(row.getByRole("button", { name: /Stop/ }));
  await stop.click();
  const dialog = one.page.getByRole("dialog");
  await dialog.getByText("What is copied stays").waitFor();
  await one.page.keyboard.press("Escape");
  await dialog.waitFor({ state: "detached" });
  assert.equal((await acts(one)).length, 1);
  await stop.and(one.page.locator(":focus")).click();
  await dialog.getByRole("button", { name: "Stop", exact: true }).click();
  await row.getByText("Stopped").waitFor();
  await row.getByRole("button", { name: /Delete/ }).click();
  await dialog.getByText("all copies on the share").waitFor();
  await one.expectSound("delete");
  await dialog.getByRole("button", { name: "Delete", exact: true }).click();
  await row.waitFor({ state: "detached" });
  assert.equal((await one.tell()).tasks.length, 3);
  await one.close();
});

test("a question that is put away leaves its button ready while nothing is answered", async () => {
  const one = await Console.open();
  await one.page.clock.install();
  await one.goSignedIn();
  const button = one.idle(one.row("Front door").getByRole("button", { name: /Delete/ }));
  const dialog = one.page.getByRole("dialog");
  await button.waitFor();
  await one.stopClock();
  await one.page.route("**/console.cgi/tasks*", () => undefined);
  for (let time = 0; time < 2; ++time) {
    await button.click();
    await dialog.waitFor();
    await one.page.keyboard.press("Escape");
    await dialog.waitFor({ state: "detached" });
  }
  await one.close();
});

test("the switch switches", async () => {
  const one = await Console.open();
  await one.goSignedIn();
  const toggle = one.row("Front door").getByRole("switch");
  await toggle.click();
  await one.row("Front door").getByText("Switched off").waitFor();
  assert.equal(await toggle.getAttribute("aria-checked"), "false");
  assert.equal((await one.tell()).tasks[0].enabled, false);
  await one.close();
});

test("a lost recorder is told since when, and comes back by itself", async () => {
  const one = await Console.open();
  await one.goSignedIn();
  await one.row("Front door").waitFor();
  one.meant = /status of 4\d\d|net::ERR_/; // the browser notes each poll that gets no answer
  await one.tell({ silent: true });
  await one.poll();
  const lost = one.page.getByText(/reconnecting since \d\d:\d\d/);
  await lost.waitFor();
  assert.match(await one.page.locator("body").getAttribute("class"), /stale/);
  await one.row("Front door").waitFor(); // stays readable
  await one.poll();
  await one.expectSound("without its recorder");
  await one.tell({ silent: false });
  await lost.waitFor({ state: "hidden" });
  await one.close();
});

test("names that would harm are shown as texts", async () => {
  const names = ["<script>throw 'run'</script>", "\"><img src=x onerror=alert(1)>",
    "it's \"quoted\"", "\u202egnitad\u202c left", "🎥🚗 car", "x".repeat(10_000)];
  const one = await Console.open({ viewport: { width: 360, height: 740 } });
  const { tasks } = await one.tell();
  await one.tell({ tasks: names.map((name, index) => ({ ...tasks[0], id: String(index + 1), name,
    settings: { ...tasks[0].settings, taskName: name, serverIP: name, destPath: `/${name}` },
    problems: [name], last_attempt: { ...tasks[0].last_attempt, reason: name } })) });
  await one.goSignedIn();
  await one.row(names[1]).waitFor();
  for (const name of names) {
    const shown = await one.page.locator("task-row h2 a").allTextContents();
    assert.ok(shown.includes(name), name.slice(0, 40));
  }
  await one.expectSound("hostile names");
  for (const [address, screen] of [["task/1", "task-screen"], ["edit/2", "task-form"],
    ["task/6", "task-screen"], ["log", "log-screen"]]) {
    await one.go(`#/${address}`);
    await one.page.locator(screen).getByRole("heading", { level: 1 }).waitFor();
    await one.expectSound(address);
  }
  await one.close();
});

test("search, filter and order find tasks among others", async () => {
  const one = await Console.open();
  await one.goSignedIn();
  const shown = () => one.page.locator("task-row h2 a").allTextContents();
  await one.page.getByLabel("Search").fill("ar");
  assert.deepEqual(await shown(), ["Car park", "Yard"]);
  await one.page.getByLabel("Show").selectOption("off");
  assert.deepEqual(await shown(), ["Yard"]);
  await one.page.getByLabel("Show").selectOption("active");
  await one.page.getByText("No task is like that.").waitFor();
  await one.page.getByLabel("Search").fill("");
  await one.page.getByLabel("Show").selectOption("all");
  await one.page.getByLabel("Sort by").selectOption("name");
  assert.deepEqual(await shown(), ["Car park", "Front door", "Gate", "Yard"]);
  await one.close();
});

test("a thousand tasks", async () => {
  const one = await Console.open({}, { many: 1000 });
  await one.go();
  await one.page.evaluate(() => {
    const when = (count, name) => {
      const observer = new MutationObserver(() => {
        if (document.querySelectorAll("task-row").length < count) return;
        observer.disconnect();
        requestAnimationFrame(() => setTimeout(() => (globalThis[name] = performance.now())));
      });
      observer.observe(document, { subtree: true, childList: true });
    };
    when(1, "shown");
    when(1000, "whole");
    const arrived = globalThis.fetch;
    globalThis.fetch = async (...request) => {
      const reply = await arrived(...request);
      if (String(request[0]).includes("console.cgi/tasks")) {
        globalThis.told ??= (await reply.clone().text(), performance.now());
      }
      return reply;
    };
  });
  await one.signIn();
  await one.page.waitForFunction(() => globalThis.whole);
  const [shown, whole] = await one.page.evaluate(() =>
    [globalThis.shown - globalThis.told, globalThis.whole - globalThis.told].map(Math.round));
  console.log(`# 1,000 tasks: shown ${shown} ms after they were told, all rows after ${whole}`);
  await one.page.evaluate(() => {
    globalThis.before = [...document.querySelectorAll("task-row")];
  });
  await one.change("500", { status: "running", progress: PROGRESS });
  await one.poll();
  await one.row("Task 500").getByText("Running", { exact: true }).waitFor();
  assert.equal(await one.page.evaluate(() =>
    [...document.querySelectorAll("task-row")].every((row, at) => row === globalThis.before[at])),
  true);
  await one.page.getByLabel("Search").fill("Task 777");
  assert.equal(await one.page.locator("task-row").count(), 1);
  await one.close();
});

test("polling keeps no session open by itself, and asks for nothing new by its tag", async () => {
  const one = await Console.open();
  await one.goSignedIn();
  await one.row("Front door").waitFor();
  const asked = [];
  one.page.on("response", async (response) => {
    if (response.url().includes("console.cgi/tasks")) {
      asked.push([new URL(response.url()).search, response.status()]);
    }
  });
  const uses = () => asked.filter(([search]) => search !== "?poll=1");
  await one.poll();
  await one.poll();
  assert.deepEqual(uses(), []);
  await one.page.keyboard.press("Shift");
  await one.poll();
  await one.poll();
  assert.deepEqual(uses(), [["", 304]]);
  assert.ok(asked.length >= 4 && asked.every(([, status]) => status === 304), String(asked));
  await one.close();
});

test("a poll asks with the tag that the last answer had, a 304 among them", async () => {
  const one = await Console.open();
  const polls = [];
  one.page.on("response", (response) => {
    if (response.url().includes("console.cgi/tasks") && response.status() !== 401) {
      polls.push({ status: response.status(), tag: response.headers().etag,
        asked: response.request().headers()["if-none-match"] });
    }
  });
  await one.goSignedIn();
  await one.row("Front door").waitFor();
  for (let poll = 0; poll < 3; ++poll) await one.poll();
  const [first, ...others] = polls.slice(-4);
  assert.deepEqual(others.map(({ status }) => status), [304, 304, 304]);
  assert.deepEqual(others.map(({ asked }) => asked),
    [first, ...others.slice(0, -1)].map(({ tag }) => tag));
  assert.equal(new Set(polls.map(({ tag }) => tag)).size, polls.length);
  await one.close();
});
