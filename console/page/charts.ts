// Drawings of what was: the rate of a running backup, and how each day's runs ended.
import { mark } from "./dom";
import * as format from "./format";
import { draw } from "./icons";
import { t } from "./texts";
import type { Day, Run, Time } from "./wire";

const WIDTH = 600;
const HEIGHT = 120;

/** A curve that grows with its samples; the same node all along. */
export class RateCurve {
  private readonly line = draw("polyline", { class: "curve", fill: "none" });
  private readonly most = draw("text", { x: 4, y: 14 });
  private readonly title = draw("title", {});
  readonly element = draw("svg", { viewBox: `0 0 ${WIDTH} ${HEIGHT}`, class: "chart", role: "img" },
    this.title, this.line, this.most);

  update(samples: [Time, number][]): void {
    const [begin, end] = [samples[0]?.[0] ?? 0, samples[samples.length - 1]?.[0] ?? 0];
    const top = Math.max(1, ...samples.map(([, rate]) => rate));
    const points = samples.map(([time, rate]) =>
      `${(((time - begin) / (end - begin || 1)) * WIDTH).toFixed(1)},` +
      `${(HEIGHT - 2 - (rate / top) * (HEIGHT - 24)).toFixed(1)}`);
    mark(this.line, "points", points.join(" "));
    this.most.textContent = t.rateAtMost(format.rate(top));
    this.title.textContent = t.rateCurve(format.rate(samples[samples.length - 1]?.[1] ?? 0),
      format.rate(top));
  }
}

interface DayRuns { day: Day; good: number; bad: number; bytes: number }

function byDay(runs: Run[]): DayRuns[] {
  const days = new Map<Day, DayRuns>();
  for (const run of [...runs].reverse()) {
    const day = format.dayOf(run.started);
    const sum = days.get(day) ?? { day, good: 0, bad: 0, bytes: 0 };
    days.set(day, sum);
    if (run.outcome === "success") sum.good += 1;
    if (run.outcome === "failed") sum.bad += 1;
    sum.bytes += run.sent.bytes;
  }
  return [...days.values()].slice(-30);
}

/** A bar a day: as high as what was sent, marked where a run has failed. */
export function historyChart(runs: Run[]): SVGSVGElement {
  const days = byDay(runs);
  const top = Math.max(1, ...days.map(({ bytes }) => bytes));
  const width = WIDTH / 30;
  const bars = days.map(({ day, good, bad, bytes }, index) => {
    const height = 4 + (bytes / top) * (HEIGHT - 20);
    const text = t.dayRuns(format.dayName(day), good, bad, format.bytes(bytes));
    return draw("g", {}, draw("title", {}, text),
      draw("rect", { x: index * width + 2, y: HEIGHT - height, width: width - 4, height,
        class: bad ? "bad" : "good" }),
      ...(bad ? [draw("text", { x: index * width + width / 2, y: HEIGHT - height - 4,
        "text-anchor": "middle" }, "!")] : []));
  });
  return draw("svg", { viewBox: `0 0 ${WIDTH} ${HEIGHT}`, class: "chart", role: "img",
    preserveAspectRatio: "xMinYMid", "aria-label": t.historyChart }, ...bars);
}
