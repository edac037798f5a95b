// The recorder itself: what is wrong, services, cameras, and how full the shares were.
import { AlertsPart } from "./alerts_part";
import { ask, words } from "./api";
import { list, make, say, show } from "./dom";
import * as format from "./format";
import { fillRows, headRow, scrolling } from "./log_table";
import { known, onChange } from "./state";
import { t, translated } from "./texts";
import type { Alerts, Recorder } from "./wire";

/** A problem is a task's, by its number, or a destination's. */
const nameOf = (subject: string): string =>
  known?.tasks.find(({ id }) => id === subject)?.name ?? subject;

export class RecorderScreen extends HTMLElement {
  private readonly trouble = make("p", { role: "status" }, t.loading);
  private readonly facts = make("dl", { class: "settings" });
  private readonly problems = make("ul", { class: "details" });
  private readonly cameras = make("tbody");
  private readonly rooms = make("tbody");
  private readonly alerts = new AlertsPart();
  private readonly whole = make("div", { hidden: true });
  private readonly end = new AbortController();

  connectedCallback(): void {
    this.whole.append(this.problems, this.facts,
      make("h2", {}, t.cameras),
      scrolling(t.cameras, make("table", {}, headRow(t.camera, t.state, t.oldest), this.cameras)),
      make("h2", {}, t.rooms),
      scrolling(t.rooms, make("table", {}, headRow(t.where, t.free, t.total, t.asOf), this.rooms)),
      this.alerts.element);
    this.append(make("h1", {}, t.recorder), this.trouble, this.whole);
    onChange(() => void this.load(), this.end.signal);
    void this.load();
  }

  disconnectedCallback(): void {
    this.end.abort();
  }

  get unsaved(): boolean {
    return this.alerts.unsaved;
  }

  private async load(): Promise<void> {
    try {
      const [facts, alerts] = await Promise.all(
        [ask<Recorder>("GET", "recorder"), ask<Alerts>("GET", "alerts")]);
      this.update(facts);
      this.alerts.update(alerts);
    } catch (error) {
      say(this.trouble, words(error));
    }
  }

  private update(facts: Recorder): void {
    say(this.trouble, facts.problems.length ? "" : t.nothingOpen);
    show(this.whole, true);
    const health = (works: boolean): string => (works ? t.works : t.doesNotWork);
    const rows: [string, string][] = [[t.version, facts.version], [t.zone, facts.zone],
      [t.backupService, health(facts.services.backup)], [t.logService, health(facts.services.log)],
      [t.alertsWaiting, format.count(facts.alerts_waiting)]];
    list(this.facts, rows, ([label]) => label,
      ([label]) => make("div", {}, make("dt", {}, label), make("dd", { dir: "auto" })),
      (node, [, value]) => say(node.lastElementChild!, value));
    list(this.problems, facts.problems, (problem) => `${problem.kind} ${problem.subject}`,
      () => make("li", { dir: "auto" }),
      (node, { kind, subject, detail, since, remedy }) => say(node, [
        t.openProblem(t.problemWords[kind](nameOf(subject)), detail, format.soon(since)),
        t.whatToDo(translated(remedy))].join(" ")));
    fillRows(this.cameras, facts.channels, ({ index }) => String(index), (camera) => [camera.name,
      t.cameraStates[camera.state] || camera.state,
      camera.oldest ? format.dayName(camera.oldest) : camera.unreadable ?? t.noRecordings]);
    fillRows(this.rooms, facts.rooms, ({ destination }) => destination, (room) => [room.destination,
      format.bytes(room.free), format.bytes(room.total), format.soon(room.time)]);
  }
}

customElements.define("recorder-screen", RecorderScreen);
