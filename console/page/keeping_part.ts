// How long copies stay on the share, and what happens when it is full.
import { make, show } from "./dom";
import { field, number, select, tick } from "./fields";
import { t } from "./texts";
import type { OverwriteType, TaskBody, TaskSettings } from "./wire";

type Values = Pick<TaskBody, "remoteKeepRec" | "remoteKeepRecDays" | "remoteOverwriteType">;

export class KeepingPart {
  private readonly limit = make("input", { type: "checkbox", name: "limit",
    change: () => this.update() });
  private readonly days: HTMLInputElement;
  private readonly full: HTMLSelectElement;
  private readonly daysField: HTMLElement;
  readonly content: HTMLElement[];

  constructor(private readonly settings: TaskSettings | null) {
    this.limit.checked = Boolean(settings?.remoteKeepRec);
    const days = settings?.remoteKeepRec ? settings.remoteKeepRecDays : 30;
    this.days = number("keepDays", days, 1, 99);
    this.full = select("full", t.overwriteTypes,
      settings?.remoteOverwriteType ?? "stop_overwrite");
    this.daysField = field(t.keepDays, this.days);
    this.content = [tick(t.removeOld, this.limit, t.removeOldNote), this.daysField,
      field(t.whenFull, this.full)];
    this.update();
  }

  private update(): void {
    show(this.daysField, this.limit.checked);
    this.days.disabled = !this.limit.checked;
  }

  values(): Values {
    return { remoteKeepRec: this.limit.checked,
      remoteKeepRecDays: this.limit.checked ? this.days.valueAsNumber
        : this.settings?.remoteKeepRecDays ?? 0,
      remoteOverwriteType: this.full.value as OverwriteType };
  }

  get words(): string {
    const days = this.limit.checked ? t.sentenceKeeps(this.days.valueAsNumber || 0)
      : t.sentenceKeepsAll;
    return `${days} ${t.sentenceFull[this.full.value as OverwriteType]}`;
  }
}
