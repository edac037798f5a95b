// Which server a task copies to, and with which account, tried out by asking for its shares.
import { act, ask, LONG_PATIENCE } from "./api";
import { make, show } from "./dom";
import { field, number, serverIsGood, storable, tick } from "./fields";
import { t } from "./texts";
import { trial } from "./trial";
import type { Shares, TaskBody, TaskSettings } from "./wire";

type Values = Pick<TaskBody, "serverIP" | "port" | "username" | "password">;

/** What the recorder keeps; the page hands it back and shows it nowhere. */
async function storedPassword(id: string): Promise<string> {
  const { task_list } =
    await act<{ task_list: { taskID: string; password: string }[] }>("GET", "task");
  const task = task_list.find(({ taskID }) => taskID === id);
  if (!task) throw new Error(t.taskGone);
  return task.password;
}

export class ServerPart {
  private readonly server: HTMLInputElement;
  private readonly port: HTMLInputElement;
  private readonly user: HTMLInputElement;
  private readonly password = make("input", { name: "password", type: "password",
    autocomplete: "off" });
  private readonly keep = make("input", { type: "checkbox", name: "keep",
    change: () => this.updatePassword() });
  private readonly passwordField = field(t.password, this.password,
    { hint: t.passwordHint, check: storable });
  readonly content: HTMLElement[];

  /** `id` is of the task whose password is kept, "" without one; `found` gets a server's shares. */
  constructor(settings: TaskSettings | null, private readonly id: string,
    private readonly found: (shares: Shares["shares"]) => void) {
    this.server = make("input", { name: "server", required: true, spellcheck: "false",
      autocapitalize: "none", value: settings?.serverIP ?? "" });
    this.port = number("port", settings?.port ?? 445, 1, 65535);
    this.user = make("input", { name: "user", required: true, autocomplete: "off",
      spellcheck: "false", autocapitalize: "none", value: settings?.username ?? "" });
    this.keep.checked = id !== "";
    this.updatePassword();
    this.content = [
      make("div", { class: "pair" },
        field(t.server, this.server, { hint: t.serverHint, check: serverIsGood }),
        field(t.port, this.port)),
      field(t.account, this.user, { hint: t.accountHint, check: storable }),
      ...(id ? [tick(t.keepPassword, this.keep)] : []), this.passwordField,
      ...trial({ label: t.trySignIn, ready: () => this.ready(), doing: () => this.listing,
        work: () => this.list() })];
  }

  private updatePassword(): void {
    show(this.passwordField, !this.keep.checked);
    if (this.keep.checked) this.password.value = "";
    else if (this.id) this.password.focus();
  }

  async values(): Promise<Values> {
    return {
      serverIP: this.server.value.trim(), port: this.port.valueAsNumber, username: this.user.value,
      password: this.keep.checked ? await storedPassword(this.id) : this.password.value,
    };
  }

  /** For what is said of it before it is saved. */
  get address(): { serverIP: string; port: number } {
    return { serverIP: this.server.value.trim(), port: this.port.valueAsNumber };
  }

  ready(): boolean {
    const bad = [this.server, this.port, this.user].find((input) => !input.checkValidity());
    if (bad) bad.dispatchEvent(new Event("missing", { bubbles: true }));
    return !bad;
  }

  get listing(): string {
    return t.listingShares(this.address.serverIP, this.user.value);
  }

  async list(): Promise<string> {
    const { shares } = await ask<Shares>("POST", "shares", { patience: LONG_PATIENCE, body: {
      server: this.address.serverIP, port: this.address.port, user: this.user.value,
      ...(this.keep.checked ? { task: this.id } : { password: this.password.value }) } });
    this.found(shares);
    return t.sharesFound(shares.length);
  }
}
