// The screen of all tasks: what matters in one line, then a row a task, searched, filtered, sorted.
import { announce } from "./dialogs";
import { list, make, mark, say, show } from "./dom";
import { known, lostSince, onChange, refresh } from "./state";
import { perform, type Action } from "./task_actions";
import { TaskRow } from "./task_row";
import { canStop, headline, isMissing, needsYou, placeOf, stateOf } from "./task_words";
import { locale, t } from "./texts";
import type { Task } from "./wire";

const FIRST = 20;
const MORE = 100;

const FILTERS: Record<string, (task: Task) => boolean> = {
  all: () => true,
  troubled: needsYou,
  active: canStop,
  off: (task) => !task.enabled,
};

const collator = new Intl.Collator(locale, { numeric: true });
const byName = (a: Task, b: Task): number => collator.compare(a.name, b.name);
const by = (value: (task: Task) => number) => (a: Task, b: Task): number =>
  value(a) - value(b) || byName(a, b);

const ORDERS: Record<string, (a: Task, b: Task) => number> = {
  attention: by((task) => (needsYou(task) ? 0 : isMissing(task) ? 1 : 2)),
  name: byName,
  next: by((task) => task.next_run ?? Infinity),
  success: by((task) => task.last_success ?? 0),
};

export class TasksScreen extends HTMLElement {
  private readonly heading = make("h1", {});
  private readonly details = make("ul", { class: "details" });
  private readonly first = make("p", { class: "first", hidden: true }, t.firstStep, " ",
    make("a", { class: "button main", href: "#/new" }, t.newTask));
  private readonly search = make("input", { type: "search", name: "search",
    input: () => this.fill() });
  private readonly filter = this.choice("filter", t.filters);
  private readonly order = this.choice("order", t.orders);
  private readonly rows = make("div", { role: "list", class: "tasks" });
  private readonly nothing = make("p", { hidden: true }, t.nothingFound);
  private readonly tools = make("form", { class: "tools", role: "search", hidden: true,
    submit: (event) => event.preventDefault() },
    make("label", {}, t.search, this.search), make("label", {}, t.show, this.filter),
    make("label", {}, t.sortBy, this.order),
    make("a", { class: "button main", href: "#/new" }, t.newTask));
  private readonly end = new AbortController();
  private readonly states = new Map<string, string>();
  private most = FIRST; // rows, until there is time for more
  private waiting = false;

  constructor() {
    super();
    this.rows.addEventListener("click", (event) => void this.act(event));
    this.append(this.heading, this.details, this.first, this.tools, this.nothing, this.rows);
  }

  connectedCallback(): void {
    onChange(() => this.update(), this.end.signal);
    const clock = setInterval(() => this.update(), 20_000); // "3 minutes ago" does not stay so
    this.end.signal.addEventListener("abort", () => clearInterval(clock));
    this.update();
    if (known) void refresh();
  }

  disconnectedCallback(): void {
    this.end.abort();
  }

  private choice(name: string, texts: Record<string, string>): HTMLSelectElement {
    return make("select", { name, change: () => this.fill() },
      ...Object.entries(texts).map(([value, text]) => make("option", { value }, text)));
  }

  private update(): void {
    if (!known) {
      say(this.heading, lostSince === null ? t.loading : t.lostText);
      return;
    }
    const { text, tone, details } = headline(known);
    say(this.heading, text);
    mark(this.heading, "data-tone", tone);
    list(this.details, [...details.entries()], ([place]) => String(place),
      () => make("li", { dir: "auto" }), (node, [, detail]) => say(node, detail));
    show(this.details, details.length > 0);
    show(this.first, known.tasks.length === 0);
    show(this.tools, known.tasks.length > 0);
    this.tell(known.tasks);
    this.fill();
  }

  /** Rows beyond the first come when there is time, so that a thousand keep nobody waiting. */
  private fill(change = (row: TaskRow, task: Task): void => row.update(task)): void {
    const wanted = this.search.value.trim().toLocaleLowerCase();
    const tasks = (known?.tasks ?? []).filter(FILTERS[this.filter.value]!).filter((task) =>
      !wanted || `${task.name} ${placeOf(task.settings)}`.toLocaleLowerCase().includes(wanted));
    tasks.sort(ORDERS[this.order.value]);
    list<Task, TaskRow>(this.rows, tasks.slice(0, this.most), (task) => task.id,
      (task) => new TaskRow(task), change);
    if (tasks.length > this.most) this.later();
    show(this.nothing, tasks.length === 0 && (known?.tasks.length ?? 0) > 0);
  }

  private later(): void {
    if (this.waiting) return;
    this.waiting = true;
    setTimeout(() => {
      this.waiting = false;
      this.most += MORE;
      if (!this.isConnected) return;
      this.fill((row, task) => {
        if (row.task !== task) row.update(task);
      });
    });
  }

  /** Says each change of state, once; the first look changes nothing. */
  private tell(tasks: Task[]): void {
    for (const task of tasks) {
      const before = this.states.get(task.id);
      if (before !== undefined && before !== task.status) {
        announce(`${task.name}: ${stateOf(task).word}`);
      }
      this.states.set(task.id, task.status);
    }
  }

  private async act(event: Event): Promise<void> {
    const button = (event.target as Element).closest("[data-do]");
    const row = button?.closest<TaskRow>("task-row");
    if (button && row) await perform(button.getAttribute("data-do") as Action, row.task, button);
  }
}

customElements.define("tasks-screen", TasksScreen);
