// The event log: filters that live in the address, older pages, and the same as a file.
import { ask, consoleAddress, words } from "./api";
import { make, mark, say, show } from "./dom";
import { momentOf } from "./format";
import { logRow, logTable } from "./log_table";
import { known, onChange } from "./state";
import { t } from "./texts";
import type { Log } from "./wire";

const LAST_SECOND = 86_399;

export class LogScreen extends HTMLElement {
  private readonly body = make("tbody");
  private readonly trouble = make("p", { role: "status" });
  private readonly older = make("button", { class: "plain", hidden: true,
    click: () => void this.more() }, t.older);
  private readonly csv = make("a", { class: "button plain", download: true }, t.asCsv);
  private readonly task = make("select", { name: "task" });
  private readonly end = new AbortController();
  private cursor: Log["older"] = null;

  constructor(private readonly query: URLSearchParams) {
    super();
    this.append(make("h1", {}, t.log), this.filters(), this.trouble, logTable(this.body),
      make("div", { class: "actions" }, this.older, this.csv));
  }

  connectedCallback(): void {
    onChange(() => this.fillTasks(), this.end.signal);
    this.fillTasks();
    mark(this.csv, "href", consoleAddress(`log.csv?${this.asked()}`));
    void this.more();
  }

  disconnectedCallback(): void {
    this.end.abort();
  }

  private filters(): HTMLElement {
    const value = (name: string): string => this.query.get(name) ?? "";
    const kinds = { "": t.allKinds, ...t.logKinds };
    return make("form", { class: "tools", role: "search", submit: (event) => this.search(event) },
      make("label", {}, t.search, make("input", { type: "search", name: "text",
        value: value("text") })),
      make("label", {}, t.task, this.task),
      make("label", {}, t.kind, make("select", { name: "kind" },
        ...Object.entries(kinds).map(([kind, text]) =>
          make("option", { value: kind, selected: kind === value("kind") }, text)))),
      make("label", {}, t.fromDay, make("input", { type: "date", name: "from",
        value: value("from") })),
      make("label", {}, t.toDay, make("input", { type: "date", name: "to", value: value("to") })),
      make("button", { class: "main" }, t.search));
  }

  private fillTasks(): void {
    if (!known || this.task.childElementCount > 1) return;
    const wanted = this.query.get("task") ?? "";
    this.task.replaceChildren(make("option", { value: "" }, t.allTasks),
      ...known.tasks.map(({ id, name }) =>
        make("option", { value: id, selected: id === wanted }, name)));
  }

  /** What is asked for stands in the address, so it can be kept and sent. */
  private search(event: Event): void {
    event.preventDefault();
    const query = new URLSearchParams();
    for (const [name, value] of new FormData(event.target as HTMLFormElement)) {
      if (value) query.set(name, String(value));
    }
    location.hash = `#/log?${query}`;
  }

  /** The address has days, the recorder is asked for moments. */
  private asked(): URLSearchParams {
    const query = new URLSearchParams(this.query);
    for (const [name, seconds] of [["from", 0], ["to", LAST_SECOND]] as const) {
      const day = query.get(name);
      if (day) query.set(name, String(momentOf(day, seconds)));
    }
    return query;
  }

  private async more(): Promise<void> {
    const query = this.asked();
    if (this.cursor !== null) query.set("before", String(this.cursor));
    try {
      const log = await ask<Log>("GET", `log?${query}`);
      this.cursor = log.older;
      this.body.append(...log.events.map(logRow));
      say(this.trouble, this.body.childElementCount ? "" : t.noEvents);
    } catch (error) {
      say(this.trouble, words(error));
    }
    show(this.older, this.cursor !== null);
  }
}

customElements.define("log-screen", LogScreen);
