// Where on the server the copies go: share and folder, tried out by writing there.
import { act, LONG_PATIENCE } from "./api";
import { make, mark, show } from "./dom";
import { field, pathIsGood, storable } from "./fields";
import * as format from "./format";
import type { ServerPart } from "./server_part";
import { placeOf } from "./task_words";
import { t } from "./texts";
import { trial } from "./trial";
import type { Shares, TaskSettings } from "./wire";

/** What comes below zero is more than the recorder has a number for. */
const FASTEST = 2 ** 31;

export class SharePart {
  private readonly share: HTMLInputElement;
  private readonly folder: HTMLInputElement;
  private readonly shares = make("ul", { class: "shares", "aria-label": t.foundShares,
    hidden: true });
  readonly content: HTMLElement[];

  constructor(settings: TaskSettings | null, private readonly server: ServerPart) {
    const [share = "", ...folders] = (settings?.destPath ?? "").split(/[\\/]+/).filter(Boolean);
    this.share = make("input", { name: "share", required: true, value: share,
      spellcheck: "false", autocapitalize: "none", input: () => this.update() });
    this.folder = make("input", { name: "folder", value: folders.join("/"), spellcheck: "false",
      autocapitalize: "none" });
    this.content = [
      ...trial({ label: t.listShares, ready: () => server.ready(), doing: () => server.listing,
        work: () => server.list() }),
      this.shares,
      field(t.share, this.share,
        { check: (name) => (name.includes("/") ? t.badShare : pathIsGood(name)) }),
      field(t.folder, this.folder, { hint: t.folderHint,
        check: (name) => pathIsGood(name) || storable(this.path) }),
      ...trial({ label: t.testServer, ready: () => this.ready(),
        doing: () => t.testing(this.place), work: () => this.test() })];
  }

  /** Shows what there is to choose from. */
  offer(shares: Shares["shares"]): void {
    this.shares.replaceChildren(...shares.map(({ name, comment }) => {
      const choice = make("button", { type: "button", class: "plain", value: name,
        click: () => this.choose(name) }, make("bdi", {}, name));
      if (comment) choice.append(make("small", { dir: "auto" }, comment));
      return make("li", {}, choice);
    }));
    show(this.shares, shares.length > 0);
    this.update();
  }

  private choose(name: string): void {
    this.share.value = name;
    this.share.dispatchEvent(new Event("input", { bubbles: true }));
    this.share.dispatchEvent(new Event("change"));
  }

  /** Whether the path is too long depends on both of its fields. */
  private update(): void {
    for (const choice of this.shares.querySelectorAll("button")) {
      mark(choice, "aria-pressed", String(choice.value === this.share.value));
    }
    this.folder.dispatchEvent(new Event("input"));
  }

  /** As it is stored. */
  get path(): string {
    return `/${[this.share.value, ...this.folder.value.split("/")].filter(Boolean).join("/")}`;
  }

  get place(): string {
    return placeOf({ ...this.server.address, destPath: this.path });
  }

  private ready(): boolean {
    const bad = [this.share, this.folder].find((input) => !input.checkValidity());
    bad?.focus();
    return !bad && this.server.ready();
  }

  private async test(): Promise<string> {
    const login = await this.server.values();
    const body = { ...login, destPath: this.path,
      username: login.username.replace(/^.*\\/, "") }; // the tool takes no DOMAIN\user
    const { transferRate } =
      await act<{ transferRate: string }>("PUT", "server/testing", body, LONG_PATIENCE);
    const rate = Number(transferRate);
    return t.testPassed(rate < 0 ? t.moreThan(format.rate(FASTEST)) : format.rate(rate));
  }
}
