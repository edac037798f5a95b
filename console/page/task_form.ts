// A task made, changed or duplicated: step by step, up to the sentence that says it all.
import { words } from "./api";
import { CameraPart } from "./camera_part";
import { announce, choose } from "./dialogs";
import { make, say, show } from "./dom";
import { field, refuseAt, retell, storable, tick } from "./fields";
import { KeepingPart } from "./keeping_part";
import { fieldOf } from "./refusals";
import { SchedulePart } from "./schedule_part";
import { ServerPart } from "./server_part";
import { SharePart } from "./share_part";
import { known, onChange } from "./state";
import { Steps, type Step } from "./steps";
import { TaskSaving } from "./task_saving";
import { locale, t } from "./texts";
import type { Task, TaskBody } from "./wire";

export type Mode = "create" | "edit" | "duplicate";

const ADDRESSES = { create: "new", edit: "edit", duplicate: "duplicate" };
const sentences = new Intl.ListFormat(locale);

export class TaskForm extends HTMLElement {
  private readonly news = make("p", { role: "status", class: "problem" });
  private readonly trouble = make("p", { role: "alert", class: "trouble", hidden: true,
    tabindex: "-1" });
  private readonly sentence = make("p", { class: "sentence", dir: "auto" });
  private readonly now = make("input", { type: "checkbox", name: "now" });
  private readonly next = make("button", {}, t.next);
  private readonly back = make("button", { type: "button", click: () => this.steps.move(-1) },
    t.back);
  private readonly save = make("button", { class: "main" }, t.save);
  private readonly end = new AbortController();
  private name!: HTMLInputElement;
  private server!: ServerPart;
  private share!: SharePart;
  private cameras!: CameraPart;
  private schedule!: SchedulePart;
  private keeping!: KeepingPart;
  private steps!: Steps;
  private saving!: TaskSaving;
  /** Whether something is filled in that is stored nowhere. */
  unsaved = false;

  constructor(private readonly mode: Mode, private readonly taskId: string,
    private readonly query: URLSearchParams) {
    super();
  }

  connectedCallback(): void {
    onChange(() => this.update(), this.end.signal);
    this.update();
  }

  disconnectedCallback(): void {
    this.end.abort();
  }

  /** Once the tasks are known the form is its user's; what others do meanwhile is told. */
  private update(): void {
    if (this.childElementCount > 0) this.watch();
    else if (this.mode === "create") this.build(null);
    else if (known) this.begin(this.current());
  }

  private begin(task: Task | undefined): void {
    if (task) this.build(task);
    else this.append(make("h1", {}, t.taskGone), make("a", { href: "#/tasks" }, t.toTasks));
  }

  private watch(): void {
    if (this.mode !== "edit" || !known) return;
    const task = this.current();
    if (!task) say(this.news, t.taskGone);
    else say(this.news, this.saving.isForeign(task) ? t.changedElsewhereText : "");
  }

  private current(): Task | undefined {
    return known?.tasks.find(({ id }) => id === this.taskId);
  }

  private build(task: Task | null): void {
    const settings = task?.settings ?? null;
    const name = settings && this.mode === "duplicate" ? t.copyOf(settings.taskName)
      : settings?.taskName ?? "";
    this.saving = new TaskSaving(this.mode === "edit" ? task : null);
    this.name = make("input", { name: "name", required: true, value: name });
    this.server = new ServerPart(settings, this.taskId, (shares) => this.share.offer(shares));
    this.share = new SharePart(settings, this.server);
    this.cameras = new CameraPart(settings);
    this.schedule = new SchedulePart(settings);
    this.keeping = new KeepingPart(settings);
    this.steps = new Steps(this.stepsOf(), `#/${ADDRESSES[this.mode]}`
      + (this.taskId && `/${this.taskId}`), (first, last) => this.showButtons(first, last));
    this.append(this.form());
    // What is filled in has no gaps before the step that an address names.
    const step = this.mode === "create" ? "" : this.query.get("step") ?? "";
    this.steps.begin(this.steps.indexOf(step));
    this.tell();
  }

  private stepsOf(): Step[] {
    return [
      { name: "server", title: t.steps.server, content: [
        field(t.taskName, this.name, { check: storable }), ...this.server.content] },
      { name: "share", title: t.steps.share, content: this.share.content },
      { name: "cameras", title: t.steps.cameras, content: this.cameras.content,
        check: () => this.cameras.check() },
      { name: "schedule", title: t.steps.schedule, content: this.schedule.content },
      { name: "keeping", title: t.steps.keeping, content: this.keeping.content },
      { name: "review", title: t.steps.review, content: [this.sentence,
        ...(this.saving.staysOff ? [make("p", {}, t.staysOff)] : []), tick(t.startNow, this.now)] },
    ];
  }

  private form(): HTMLElement {
    const titles = { create: t.newTask, edit: t.editTask, duplicate: t.duplicateTask };
    const form = make("form", { class: "task-form", novalidate: true,
      submit: (event) => this.submit(event as SubmitEvent),
      input: () => (this.unsaved = true) },
      make("h1", {}, titles[this.mode]), this.news, this.steps.progress, ...this.steps.sections,
      this.trouble,
      make("div", { class: "actions" }, this.back, this.next, this.save,
        make("a", { class: "button plain", href: "#/tasks", click: () => (this.unsaved = false) },
          t.cancel)));
    for (const event of ["input", "loaded"]) form.addEventListener(event, () => this.tell());
    form.addEventListener("refusal", (event) => this.refuseField((event as CustomEvent).detail));
    form.addEventListener("missing", (event) => this.showField(event.target as HTMLElement));
    return form;
  }

  /** The address has another step of this form. */
  follow(query: URLSearchParams): void {
    this.steps?.arrive(this.steps.indexOf(query.get("step") ?? ""));
  }

  /** What is whole already can be saved from everywhere. */
  private showButtons(first: boolean, last: boolean): void {
    show(this.back, !first);
    show(this.next, !last);
    show(this.save, last || this.mode !== "create");
    this.next.classList.toggle("main", this.mode === "create");
  }

  private tell(): void {
    const cameras = this.cameras.cameraNames;
    say(this.sentence, t.sentence(this.schedule.words,
      cameras.length ? sentences.format(cameras) : t.noCameraYet, this.cameras.words,
      this.share.place, this.keeping.words));
  }

  /** Enter goes on, and saves at the end. */
  private submit(event: SubmitEvent): void {
    event.preventDefault();
    if (event.submitter === this.save || this.steps.atLast) void this.finish();
    else this.steps.move(1);
  }

  private async finish(): Promise<void> {
    if (this.save.getAttribute("aria-busy") === "true" || !this.steps.whole()) return;
    this.save.setAttribute("aria-busy", "true");
    show(this.trouble, false);
    retell(this);
    try {
      if (await this.store()) this.leave();
    } catch (error) {
      if (!this.refuseField(error)) this.refuse(`${words(error)} ${t.formKept}`);
    } finally {
      this.save.removeAttribute("aria-busy");
    }
  }

  private refuse(text: string): void {
    say(this.trouble, text);
    show(this.trouble, true);
    this.trouble.focus();
  }

  private showField(field: HTMLElement): void {
    this.steps.reveal(field);
    field.focus();
  }

  /** Shows a refusal at the field that it is about, if it is about one. */
  private refuseField(error: unknown): boolean {
    const name = fieldOf(error);
    const input = name && this.querySelector<HTMLInputElement>(`[name=${name}]`);
    if (!input) return false;
    this.steps.reveal(input);
    refuseAt(input, words(error));
    return true;
  }

  private leave(): void {
    this.unsaved = false;
    announce(t.saved(this.name.value));
    location.hash = "#/tasks";
  }

  private async body(): Promise<TaskBody> {
    return { taskName: this.name.value, ...(await this.server.values()), destPath: this.share.path,
      ...this.cameras.values(), ...this.schedule.values(), ...this.keeping.values(),
      backupImmediately: this.now.checked };
  }

  /** True when it is done; false when somebody thought better of it. */
  private async store(): Promise<boolean> {
    const task = await this.saving.stored();
    if (task && this.saving.isForeign(task) && !(await this.overwrite())) return false;
    await this.saving.send(await this.body(), task?.id ?? "");
    return true;
  }

  /** Somebody else has changed the task since this form was filled. */
  private async overwrite(): Promise<boolean> {
    const answer = await choose(t.changedElsewhere, [t.changedElsewhereText], [
      { value: "reload", label: t.showTheirs, note: t.showTheirsNote, kind: "main" },
      { value: "overwrite", label: t.overwrite, note: t.overwriteNote, kind: "danger" }]);
    if (answer === "reload") {
      this.unsaved = false;
      this.replaceChildren();
      say(this.news, "");
      this.update();
    }
    return answer === "overwrite";
  }
}

customElements.define("task-form", TaskForm);
