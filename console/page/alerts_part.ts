// How alerts get out: the settings as a form, a test of them, and what has not arrived.
import { ask, Refusal, words } from "./api";
import { list, make, say, show } from "./dom";
import { field, refuseAt, section, select, tick, type Input } from "./fields";
import * as format from "./format";
import { fillRows, headRow, scrolling } from "./log_table";
import { t } from "./texts";
import type { AlertChange, Alerts, AlertSetting, AlertTest } from "./wire";

type Key = AlertSetting["key"];
type TextKey = "mail_to" | "mail_from" | "smtp_server" | "smtp_user" | "web_hook";
type SecretKey = "mail_password" | "web_hook_secret";
type Receiver = AlertTest["receivers"][number];
const PATIENCE = 90_000; // the recorder gives a test 70 seconds

const address = /^[^\s@,]+(@[^\s@,]+)?$/;
const CHECKS: Partial<Record<TextKey, [(value: string) => boolean, () => string]>> = {
  mail_to: [(value) => value.split(",").every((one) => address.test(one.trim())),
    () => t.badAddresses],
  mail_from: [(value) => address.test(value), () => t.badAddresses],
  smtp_server: [(value) => /^([\w.-]+|\[[\da-f:.]+\])(:\d+)?$/i.test(value), () => t.badMailServer],
  web_hook: [(value) => /^https?:\/\/[^\s@#]+$/.test(value), () => t.badWebAddress],
};

/** A receiver of alerts as people know it. */
const nameOf = ({ way, recipient }: { way: string; recipient: string }): string =>
  way === "mail" ? recipient || t.mail : t.webHook;

export class AlertsPart {
  private readonly texts = {} as Record<TextKey, HTMLInputElement>;
  private readonly secrets = {} as Record<SecretKey, HTMLInputElement>;
  private readonly removals = {} as Record<SecretKey, HTMLInputElement>;
  private readonly security = select("smtp_security", t.mailSecurities, "");
  private readonly outcome = make("p", { role: "status", class: "outcome" });
  private readonly results = make("ul", { class: "details" });
  private readonly rows = make("tbody");
  private readonly waiting = scrolling(t.waitingAlerts, make("table", {}, headRow(t.receiver,
    t.subject, t.made, t.attempts, t.nextAttempt, t.lastFailure), this.rows));
  private readonly nothing = make("p", {}, t.nothingWaits);
  private readonly lost = make("ul", { class: "details" });
  private readonly machine = make("dl", { class: "settings" });
  private readonly form = make("form", { novalidate: true,
    submit: (event) => void this.submit(event) });
  private stored = new Map<Key, AlertSetting>();
  readonly element = make("section", {}, make("h2", {}, t.alerts), this.form,
    make("h3", {}, t.waitingAlerts), this.lost, this.nothing, this.waiting);

  /** What waits is always shown as it is; the form is its user's from the first time on. */
  update(told: Alerts): void {
    if (this.form.childElementCount === 0) this.build(told.settings);
    list(this.lost, told.given_up, nameOf, () => make("li", { dir: "auto" }), (node, one) =>
      say(node, t.givenUp(nameOf(one), format.soon(one.time), one.why)));
    show(this.nothing, told.waiting.length === 0);
    show(this.waiting, told.waiting.length > 0);
    fillRows(this.rows, told.waiting, (alert) => `${alert.id} ${alert.way} ${alert.recipient}`,
      (alert) => [nameOf(alert), alert.subject, format.soon(alert.made),
        format.count(alert.attempts),
        alert.next_attempt === null ? t.atOnce : format.soon(alert.next_attempt),
        alert.last_failure]);
  }

  /** Whether the form has what is not stored. */
  get unsaved(): boolean {
    return this.stored.size > 0 && Object.keys(this.changes()).length > 0;
  }

  private build(settings: AlertSetting[]): void {
    const saveButton = make("button", { class: "main" }, t.save);
    const testButton: HTMLElement = make("button", { type: "button", class: "plain",
      click: () => void this.during(testButton, () => this.test()) }, t.testAlerts);
    this.form.append(
      section(t.byMail, this.text("mail_to"), this.text("mail_from"),
        make("div", { class: "pair" }, this.text("smtp_server"),
          field(t.alertFields.smtp_security, this.security)),
        make("div", { class: "pair" }, this.text("smtp_user"), this.secret("mail_password"))),
      section(t.byWebHook, this.text("web_hook"), this.secret("web_hook_secret")),
      make("details", {}, make("summary", {}, t.ofTheMachine),
        make("p", {}, make("small", {}, t.ofTheMachineHint)), this.machine),
      make("div", { class: "actions" }, saveButton, testButton), this.outcome, this.results);
    this.fill(settings);
  }

  private text(key: TextKey): HTMLElement {
    const [good, trouble] = CHECKS[key] ?? [];
    this.texts[key] = make("input", { name: key, autocomplete: "off", spellcheck: "false",
      autocapitalize: "none", maxlength: "4095" });
    return field(t.alertFields[key], this.texts[key], { hint: t.alertHints[key],
      check: (value) => (!value || !good || good(value) ? "" : trouble!()) });
  }

  private secret(key: SecretKey): HTMLElement {
    this.secrets[key] = make("input", { name: key, type: "password",
      autocomplete: "new-password", maxlength: "4095" });
    this.removals[key] = make("input", { type: "checkbox", name: `${key}_removed` });
    return make("div", { class: "field" },
      field(t.alertFields[key], this.secrets[key], { hint: t.secretHint }),
      tick(t.removeSecrets[key], this.removals[key]));
  }

  /** What stands in the fields and boxes. */
  private filled(): Map<Node, string | boolean> {
    return new Map<Node, string | boolean>([
      ...this.all().map(([, input]) => [input, input.value] as const),
      ...Object.values(this.removals).map((removal) => [removal, removal.checked] as const)]);
  }

  /** What has changed since `sent` stood there is yet to be saved, and stays. */
  private fill(settings: AlertSetting[], sent = this.filled()): void {
    this.stored = new Map(settings.map((setting) => [setting.key, setting]));
    for (const [key, input] of this.all()) {
      if (input.value !== sent.get(input)) continue;
      const { value = null, valid = true, default: otherwise = "" } = this.stored.get(key) ?? {};
      input.value = value ?? otherwise;
      input.dispatchEvent(new Event("input"));
      if (!valid) input.dispatchEvent(new CustomEvent("refused", { detail: t.notTaken }));
    }
    for (const [key, removal] of Object.entries(this.removals)) {
      const isSet = this.stored.get(key as Key)?.set ?? false;
      removal.checked &&= isSet && !sent.get(removal);
      show(removal.parentElement!, isSet);
    }
    list(this.machine, settings.filter(({ changeable }) => !changeable), ({ key }) => key,
      ({ key }) => make("div", {}, make("dt", {}, key), make("dd", { dir: "auto" })),
      (node, { value, default: otherwise }) =>
        say(node.lastElementChild!, value ?? (otherwise || t.notSet)));
  }

  private all(): [Key, Input][] {
    return [...Object.entries(this.texts), ...Object.entries(this.secrets),
      ["smtp_security", this.security]] as [Key, Input][];
  }

  /** What differs from what is stored; an empty field is a setting that is not set. */
  private changes(): AlertChange {
    const changes: Partial<Record<Key, string | null>> = {};
    for (const [key, input] of this.all()) {
      const before = this.stored.get(key);
      const secret = input.type === "password";
      const value = secret ? input.value : input.value.trim();
      if (secret ? value : value !== (before?.value ?? before?.default ?? "")) {
        changes[key] = value || null;
      }
    }
    for (const [key, removal] of Object.entries(this.removals) as [SecretKey, HTMLInputElement][]) {
      if (removal.checked && !(key in changes)) changes[key] = null;
    }
    return changes;
  }

  private async submit(event: Event): Promise<void> {
    event.preventDefault();
    const button = (event as SubmitEvent).submitter ?? this.form;
    await this.during(button, () => this.save(t.alertsSaved));
  }

  private async save(said: string): Promise<boolean> {
    const bad = this.all().map(([, input]) => input).find((input) => !input.checkValidity());
    bad?.focus();
    if (bad) return false;
    const body = this.changes();
    if (Object.keys(body).length > 0) {
      const sent = this.filled();
      const { settings } = await ask<Alerts>("PATCH", "alerts", { body });
      this.fill(settings, sent);
    }
    this.tell(said, "good");
    return true;
  }

  /** Of what is stored: whoever tests means what stands in the form. */
  private async test(): Promise<void> {
    if (!(await this.save(""))) return;
    const to = [this.stored.get("mail_to")?.value, this.stored.get("web_hook")?.value && t.webHook]
      .filter(Boolean);
    this.tell(t.testingAlerts(to.join(", ")), "busy");
    const { receivers } = await ask<AlertTest>("POST", "alerts/test", { patience: PATIENCE });
    const failed = receivers.filter(({ arrived }) => !arrived).length;
    this.tell(failed ? t.testFailed(failed, receivers.length) : t.testArrived(receivers.length),
      failed ? "bad" : "good");
    list<Receiver, HTMLElement>(this.results, receivers, nameOf, () => make("li", { dir: "auto" }),
      (node, one) => say(node, `${nameOf(one)}: ${one.arrived ? t.arrived : one.words}`));
  }

  private async during(button: Element, work: () => Promise<unknown>): Promise<void> {
    if (button.getAttribute("aria-busy") === "true") return;
    button.setAttribute("aria-busy", "true");
    this.results.replaceChildren();
    try {
      await work();
    } catch (error) {
      this.tell(words(error), "bad");
      if (error instanceof Refusal) this.refuse(error);
    } finally {
      button.removeAttribute("aria-busy");
    }
  }

  private refuse({ field: name, message }: Refusal): void {
    const input = this.all().find(([key]) => key === name)?.[1];
    if (input) refuseAt(input, message);
  }

  private tell(text: string, tone: string): void {
    this.outcome.dataset["tone"] = tone;
    say(this.outcome, text);
  }
}
