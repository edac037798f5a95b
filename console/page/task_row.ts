// One task among others: an element that stays the same node while what it shows changes.
import { make, mark, say, show } from "./dom";
import * as format from "./format";
import { changeIcon, icon } from "./icons";
import {
  attemptWords, canStop, needsYou, placeOf, progressWords, remedyOf, scheduleWords, stateOf,
} from "./task_words";
import { t, translated } from "./texts";
import type { Task, Time } from "./wire";

type Part = "name" | "state" | "word" | "switch" | "place" | "running" | "bar" | "figures"
  | "problem" | "remedy" | "note" | "success" | "attempt" | "next" | "start" | "startWord" | "edit"
  | "duplicate" | "remove";

const piece = <K extends keyof HTMLElementTagNameMap>(tag: K, name: Part,
  attributes: Record<string, string | boolean> = {}, ...children: (Node | string)[]):
  HTMLElement => make(tag, { "data-part": name, ...attributes }, ...children);

const button = (name: Part, action: string, ...children: (Node | string)[]): HTMLElement =>
  piece("button", name, { class: "plain", "data-do": action, type: "button" }, ...children);

const fact = (name: Part, label: string): HTMLElement =>
  make("div", {}, make("dt", {}, label), piece("dd", name));

function build(): HTMLElement {
  return make("div", { class: "task" },
    make("div", { class: "task-head" },
      make("h2", {}, piece("a", "name", { dir: "auto" })),
      piece("p", "state", { class: "state" }, icon("ok"), piece("span", "word")),
      piece("button", "switch", { role: "switch", class: "switch", "data-do": "enable",
        type: "button" }, t.switch)),
    piece("p", "place", { class: "place", dir: "auto" }),
    piece("div", "running", { hidden: true }, piece("progress", "bar", { max: "100" }),
      piece("p", "figures", { class: "figures" })),
    piece("p", "problem", { class: "problem", hidden: true, dir: "auto" }),
    piece("p", "remedy", { class: "remedy", hidden: true }),
    piece("p", "note", { class: "remedy", hidden: true, dir: "auto" }),
    make("dl", { class: "facts" }, fact("success", t.lastSuccess), fact("attempt", t.lastAttempt),
      fact("next", t.nextRun)),
    make("div", { class: "actions" },
      button("start", "start", icon("start"), piece("span", "startWord")),
      piece("a", "edit", { class: "button plain" }, icon("edit"), t.edit),
      piece("a", "duplicate", { class: "button plain" }, icon("copy"), t.duplicate),
      button("remove", "remove", icon("remove"), t.delete)));
}

let pattern: HTMLElement | undefined;

export class TaskRow extends HTMLElement {
  task!: Task;
  private readonly parts = {} as Record<Part, HTMLElement>;

  constructor(task: Task) {
    super();
    pattern ??= build(); // copies are made faster than originals
    this.append(pattern.cloneNode(true));
    for (const node of this.querySelectorAll<HTMLElement>("[data-part]")) {
      this.parts[node.dataset["part"] as Part] = node;
    }
    this.dataset["task"] = task.id;
    this.setAttribute("role", "listitem");
  }

  update(task: Task): void {
    this.task = task;
    const { parts } = this;
    const state = stateOf(task);
    say(parts.name, task.name);
    mark(parts.name, "href", `#/task/${task.id}`);
    mark(parts.state, "data-tone", state.tone);
    changeIcon(parts.state.firstElementChild as SVGElement, state.icon);
    say(parts.word, state.word);
    say(parts.place, `${placeOf(task.settings)} · ${scheduleWords(task.settings)}`);
    this.classList.toggle("troubled", needsYou(task));
    this.updateProgress();
    this.updateProblem();
    this.updateFacts();
    this.updateActions();
  }

  private updateProgress(): void {
    const { parts, task: { progress, name } } = this;
    show(parts.running, progress !== null);
    if (!progress) return;
    mark(parts.bar, "value", String(progress.percent));
    mark(parts.bar, "aria-label", t.progressOf(name));
    say(parts.figures, progressWords(progress));
  }

  private updateProblem(): void {
    const { parts, task } = this;
    this.line(parts.problem, task.problems.map(translated).join(" "));
    this.line(parts.remedy, remedyOf(task));
    this.line(parts.note, task.notes.map(translated).join("; "));
  }

  private line(node: HTMLElement, text: string): void {
    show(node, text !== "");
    say(node, text);
  }

  private updateFacts(): void {
    const { parts, task } = this;
    const success = task.last_success === null ? t.never : format.relative(task.last_success);
    say(parts.success, task.overdue_since === null ? success : `${success} – ${t.overdue}`);
    this.tip(parts.success, task.last_success);
    say(parts.attempt, task.last_attempt ? attemptWords(task.last_attempt) : t.never);
    this.tip(parts.attempt, task.last_attempt?.started ?? null);
    say(parts.next, task.next_run === null ? t.noNextRun : format.soon(task.next_run));
    this.tip(parts.next, task.next_run);
  }

  private tip(node: HTMLElement, time: Time | null): void {
    mark(node, "title", time === null ? null : format.exact(time));
  }

  private updateActions(): void {
    const { parts, task } = this;
    const action = canStop(task) ? "stop" : "start";
    mark(parts.start, "data-do", action);
    changeIcon(parts.start.firstElementChild as SVGElement, action);
    say(parts.startWord, t[action]);
    mark(parts.switch, "aria-checked", String(task.enabled));
    mark(parts.edit, "href", `#/edit/${task.id}`);
    mark(parts.duplicate, "href", `#/duplicate/${task.id}`);
    for (const [name, word] of [["start", t[action]], ["switch", t.switch], ["edit", t.edit],
      ["duplicate", t.duplicate], ["remove", t.delete]] as const) {
      mark(parts[name], "aria-label", `${word}: ${task.name}`);
    }
  }
}

customElements.define("task-row", TaskRow);
