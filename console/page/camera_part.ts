// What a task copies: cameras with the days that they have, which days, which kinds, which format.
import { act, words } from "./api";
import { calendar } from "./calendar";
import { make, show } from "./dom";
import { field, number, select, tick } from "./fields";
import { dayName, momentOf } from "./format";
import { t } from "./texts";
import type { BackupType, ChannelList, RecordingFormat, RecordingType, TaskBody, TaskSettings }
  from "./wire";

type Channel = ChannelList["channel_list"][number];
type Values = Pick<TaskBody, "chIdxList" | "backupType" | "backupDays" | "backupStartDay"
  | "backupEndDay" | "recordingType" | "recordingFormat">;
const NOON = 12 * 3600; // the recorder takes the local day around a moment

export class CameraPart {
  private readonly cameras = make("div", { class: "cameras" }, make("p", {}, t.loading));
  private readonly trouble = make("p", { class: "trouble", role: "alert", hidden: true,
    tabindex: "-1" }, t.chooseCamera);
  private readonly type: HTMLSelectElement;
  private readonly days: HTMLInputElement;
  private readonly from: HTMLInputElement;
  private readonly to: HTMLInputElement;
  private readonly kind: HTMLSelectElement;
  private readonly format: HTMLSelectElement;
  private readonly daysField: HTMLElement;
  private readonly range: HTMLElement;
  private names = new Map<number, string>();
  private chosen: Set<number>;
  readonly content: HTMLElement[];

  constructor(private readonly settings: TaskSettings | null) {
    this.chosen = new Set(settings?.chIdxList ?? []);
    this.type = select("type", t.backupTypes, settings?.backupType ?? "BackupByLastDay");
    const byDays = settings?.backupType === "BackupByLastDay";
    this.days = number("days", byDays ? settings.backupDays : 7, 1, 99);
    this.from = make("input", { name: "from", type: "date",
      value: settings?.backupStartDay ?? "" });
    this.to = make("input", { name: "to", type: "date", value: settings?.backupEndDay ?? "" });
    this.kind = select("kind", t.recordingTypes,
      settings?.recordingType ?? "recording_and_alarm");
    this.format = select("format", t.recordingFormats, settings?.recordingFormat ?? "mp4");
    this.daysField = field(t.lastDays, this.days);
    this.range = make("div", { class: "pair" }, field(t.fromDay, this.from), field(t.toDay, this.to,
      { check: (value) => (value && value < this.from.value ? t.endsBefore : "") }));
    this.type.addEventListener("change", () => this.update());
    this.from.addEventListener("change", () => this.to.dispatchEvent(new Event("input")));
    this.content = [this.cameras, this.trouble,
      field(t.daysToCopy, this.type), this.daysField, this.range,
      make("div", { class: "pair" }, field(t.kinds, this.kind), field(t.format, this.format))];
    this.update();
    void this.load();
  }

  /** A field that is not shown is not asked for. */
  private update(): void {
    const range = this.type.value === "BackupByTimeRange";
    show(this.daysField, !range);
    show(this.range, range);
    this.days.disabled = range;
    for (const input of [this.from, this.to]) {
      input.disabled = !range;
      input.required = range;
    }
  }

  private async load(): Promise<void> {
    try {
      const { channel_list } = await act<{ channel_list: Channel[] }>("GET", "channel");
      this.names = new Map(channel_list.map(({ channel_index, name }) => [channel_index, name]));
      const gone = [...this.chosen].filter((index) => !this.names.has(index)); // stays chosen
      for (const index of gone) this.names.set(index, t.unknownCamera(index));
      this.cameras.replaceChildren(...channel_list.map((channel) => this.row(channel)),
        ...gone.map((index) => this.box(index, "")));
      if (this.names.size === 0) this.cameras.replaceChildren(make("p", {}, t.noCameras));
      this.cameras.dispatchEvent(new Event("loaded", { bubbles: true }));
    } catch (error) {
      const again = make("button", { type: "button", class: "plain",
        click: () => void this.load() }, t.tryAgain);
      this.cameras.replaceChildren(make("p", { class: "trouble" }, words(error)), again);
    }
  }

  private box(index: number, note: string): HTMLElement {
    const input = make("input", { type: "checkbox", name: "camera", value: index,
      checked: this.chosen.has(index), input: () => {
        if (input.checked) this.chosen.add(index);
        else this.chosen.delete(index);
        if (this.chosen.size) show(this.trouble, false);
      } });
    return tick(this.names.get(index)!, input, note);
  }

  private row(channel: Channel): HTMLElement {
    const state = t.cameraStates[channel.connection_status] ?? "";
    const oldest = channel.earlyest_utc_times > 0
      ? t.recordingsSince(dayName(channel.earlyest_local_time)) : t.noRecordings;
    const inside = make("details", {},
      make("summary", { "aria-label": `${t.days}: ${channel.name}` }, t.days));
    inside.addEventListener("toggle", () => {
      if (inside.open && inside.childElementCount === 1) {
        inside.append(calendar(channel.guid, channel.name));
      }
    });
    return make("div", { class: "camera" },
      this.box(channel.channel_index, [state, oldest].filter(Boolean).join(", ")), inside);
  }

  /** Shows what is missing; the box to begin with, null when nothing is. */
  check(): HTMLElement | null {
    show(this.trouble, this.chosen.size === 0);
    return this.chosen.size ? null : this.cameras.querySelector("input") ?? this.trouble;
  }

  values(): Values {
    const range = this.type.value === "BackupByTimeRange";
    return {
      chIdxList: [...this.chosen].sort((a, b) => a - b),
      backupType: this.type.value as BackupType,
      backupDays: range ? this.settings?.backupDays ?? 0 : this.days.valueAsNumber,
      ...(range ? { backupStartDay: momentOf(this.from.value, NOON),
        backupEndDay: momentOf(this.to.value, NOON) } : {}),
      recordingType: this.kind.value as RecordingType,
      recordingFormat: this.format.value as RecordingFormat,
    };
  }

  get cameraNames(): string[] {
    return [...this.chosen].map((index) => this.names.get(index) ?? t.unknownCamera(index));
  }

  /** What of the cameras' recordings is copied. */
  get words(): string {
    return [this.daysWords, t.sentenceKinds[this.kind.value as RecordingType],
      t.sentenceFormats[this.format.value as RecordingFormat]].filter(Boolean).join(", ");
  }

  private get daysWords(): string {
    if (this.type.value === "BackupByLastDay") return t.sentenceLast(this.days.valueAsNumber || 0);
    if (!this.from.value || !this.to.value) return "";
    return t.sentenceRange(dayName(this.from.value), dayName(this.to.value));
  }
}
