// One task: how it stands, what its runs did and why some failed, its settings, and its own log.
import { ask, words } from "./api";
import { historyChart, RateCurve } from "./charts";
import { announce } from "./dialogs";
import { list, make, say, show } from "./dom";
import * as format from "./format";
import { headRow, logRow, logTable, scrolling } from "./log_table";
import { known, onChange } from "./state";
import { perform, type Action } from "./task_actions";
import { TaskRow } from "./task_row";
import { isActive, placeOf, scheduleWords, stateOf } from "./task_words";
import { t } from "./texts";
import type { Amount, Log, Run, RunDetails, Runs, Task, TaskSettings } from "./wire";

const runPath = (task: string, run: number): string => `task/${task}/runs/${run}`;

export class TaskScreen extends HTMLElement {
  private row: TaskRow | undefined;
  private readonly heading = make("h1", { dir: "auto" }, t.loading);
  private readonly now = make("section", { hidden: true, "aria-label": t.rateNow });
  private readonly curve = new RateCurve();
  private readonly chart = make("div");
  private readonly runs = make("tbody");
  private readonly older = make("button", { class: "plain", hidden: true,
    click: () => void this.more() }, t.older);
  private readonly settings = make("dl", { class: "settings" });
  private readonly log = make("tbody");
  private readonly trouble = make("p", { role: "status" });
  private readonly end = new AbortController();
  private shown: Run[] = [];
  private cursor: number | null = null;
  private state = "";
  private status = "";

  constructor(private readonly taskId: string) {
    super();
    this.now.append(make("h2", {}, t.rateNow), this.curve.element);
    this.addEventListener("click", (event) => void this.act(event));
  }

  connectedCallback(): void {
    this.append(this.heading, this.trouble);
    onChange(() => this.update(), this.end.signal);
    this.update();
  }

  disconnectedCallback(): void {
    this.end.abort();
  }

  private update(): void {
    const task = known?.tasks.find(({ id }) => id === this.taskId);
    if (!task) {
      if (known) say(this.heading, t.taskGone);
      return;
    }
    say(this.heading, task.name);
    if (!this.row) this.build(task);
    this.row!.update(task);
    this.fillSettings(task.settings);
    show(this.now, isActive(task));
    if (isActive(task) && task.last_attempt) void this.drawRate(task.last_attempt.number);
    const state = `${task.status} ${task.last_attempt?.number}`;
    if (state !== this.state) void this.load(); // a run has begun or ended
    this.state = state;
    if (this.status !== task.status && this.status) {
      announce(`${task.name}: ${stateOf(task).word}`);
    }
    this.status = task.status;
  }

  private build(task: Task): void {
    this.row = new TaskRow(task);
    this.row.removeAttribute("role"); // it stands in no list here
    this.append(this.row, this.now,
      make("section", {}, make("h2", {}, t.history), this.chart,
        scrolling(t.history, make("table", {}, headRow(t.began, t.outcome, t.lasted, t.sent,
          t.kept, t.failed, t.removed), this.runs)),
        this.older),
      make("section", {}, make("h2", {}, t.settings), this.settings),
      make("section", {}, make("h2", {}, t.log), logTable(this.log),
        make("a", { href: `#/log?task=${task.id}` }, t.wholeLog)));
  }

  private async act(event: Event): Promise<void> {
    const button = (event.target as Element).closest("[data-do]");
    if (!button || !this.row) return;
    const action = button.getAttribute("data-do") as Action;
    const done = await perform(action, this.row.task, button);
    if (done && action === "remove") location.hash = "#/tasks";
  }

  private async load(): Promise<void> {
    try {
      const [{ runs, older }, { events }] = await Promise.all([
        ask<Runs>("GET", `task/${this.taskId}/runs`),
        ask<Log>("GET", `log?task=${encodeURIComponent(this.taskId)}&limit=10`)]);
      this.shown = runs;
      this.cursor = older;
      list(this.log, events, ({ id }) => String(id), logRow, () => undefined);
      this.fillRuns();
    } catch (error) {
      say(this.trouble, words(error));
    }
  }

  private async more(): Promise<void> {
    try {
      const { runs, older } =
        await ask<Runs>("GET", `task/${this.taskId}/runs?before=${this.cursor}`);
      this.shown.push(...runs);
      this.cursor = older;
      this.fillRuns();
    } catch (error) {
      say(this.trouble, words(error));
    }
  }

  private fillRuns(): void {
    say(this.trouble, this.shown.length ? "" : t.noRuns);
    list(this.runs, this.shown, (run) => `${run.number} ${run.outcome}`,
      (run) => this.runRow(run), () => undefined);
    this.chart.replaceChildren(...(this.shown.length ? [historyChart(this.shown)] : []));
    show(this.older, this.cursor !== null);
  }

  private runRow(run: Run): HTMLElement {
    const amount = ({ files, bytes }: Amount): HTMLElement => make("td", {},
      bytes ? t.amount(format.count(files), format.bytes(bytes)) : format.count(files));
    const outcome = make("td", { class: "text" },
      run.outcome === null ? t.stillRunning : t.outcomes[run.outcome]);
    if (run.reason) outcome.append(make("p", { dir: "auto" }, run.reason));
    if (run.failed.files > 0) outcome.append(this.failures(run));
    return make("tr", {},
      make("td", { class: "when", title: format.exact(run.started) }, format.moment(run.started),
        make("small", {}, t.causes[run.cause] ?? run.cause)),
      outcome,
      make("td", {}, run.ended === null ? "" : format.span(Math.max(1, run.ended - run.started))),
      amount(run.sent), amount(run.kept), amount(run.failed), amount(run.removed));
  }

  /** Which files, asked for when somebody wants to know. */
  private failures(run: Run): HTMLElement {
    const inside = make("details", {}, make("summary", {}, t.failedFiles));
    inside.addEventListener("toggle", async () => {
      if (!inside.open || inside.childElementCount > 1) return;
      const { failures } = await ask<RunDetails>("GET", runPath(this.taskId, run.number));
      inside.append(make("ul", {}, ...failures.map(({ file, reason }) =>
        make("li", { dir: "auto" }, file ? `${file}: ${reason}` : reason))));
    });
    return inside;
  }

  private async drawRate(number: number): Promise<void> {
    const run = await ask<RunDetails>("GET", runPath(this.taskId, number)).catch(() => null);
    if (run) this.curve.update(run.rates);
  }

  private fillSettings(settings: TaskSettings): void {
    const days = settings.backupType === "BackupByLastDay" ? t.sentenceLast(settings.backupDays)
      : t.sentenceRange(settings.backupStartDay && format.dayName(settings.backupStartDay),
        settings.backupEndDay && format.dayName(settings.backupEndDay));
    const facts: [string, string][] = [
      [t.where, placeOf(settings)], [t.account, settings.username],
      [t.when, scheduleWords(settings)],
      [t.cameraNumbers, settings.chIdxList.map((index) => index + 1).join(", ")],
      [t.daysToCopy, days], [t.kinds, t.recordingTypes[settings.recordingType]],
      [t.format, t.recordingFormats[settings.recordingFormat]],
      [t.keeping, settings.remoteKeepRec ? t.sentenceKeeps(settings.remoteKeepRecDays)
        : t.sentenceKeepsAll],
      [t.whenFull, t.overwriteTypes[settings.remoteOverwriteType]]];
    list(this.settings, facts, ([label]) => label,
      ([label]) => make("div", {}, make("dt", {}, label), make("dd", { dir: "auto" })),
      (node, [, value]) => say(node.lastElementChild!, value));
  }
}

customElements.define("task-screen", TaskScreen);
