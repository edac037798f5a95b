// The steps of a form: one is shown, all are kept, and forward leads past what is well filled in.
import { make, mark, show } from "./dom";
import { t } from "./texts";

export interface Step {
  /** As it stands in the address. */
  name: string;
  title: string;
  content: (Node | string)[];
  /** Shows what its fields do not tell themselves; the first that has to be filled in, or null. */
  check?: () => HTMLElement | null;
}

/** Has every field tell what is wrong with it; the first of them, or null. */
function troubleIn(section: HTMLElement, step: Step): HTMLElement | null {
  const fields = [...section.querySelectorAll<HTMLInputElement>("input, select")];
  const [bad] = fields.filter((field) => !field.checkValidity());
  const missing = step.check?.() ?? null;
  return bad ?? missing;
}

export class Steps {
  readonly progress: HTMLElement;
  readonly sections: HTMLElement[];
  private readonly links: HTMLElement[];
  private at = 0;

  /** `address` is the form's own; `shown` hears of each step whether it is the first, the last. */
  constructor(private readonly steps: Step[], private readonly address: string,
    private readonly shown: (first: boolean, last: boolean) => void) {
    this.sections = steps.map((step, index) => make("section", { class: "step", hidden: true,
      "data-step": step.name },
      make("h2", { tabindex: "-1" }, step.title, " ",
        make("small", {}, t.stepOf(index + 1, steps.length))),
      ...step.content));
    this.links = steps.map((step, index) => make("a", { href: this.addressOf(index),
      click: (event) => this.follow(event, index) },
      make("span", { class: "number" }, String(index + 1)), " ",
      make("span", { class: "title" }, step.title)));
    this.progress = make("nav", { "aria-label": t.stepsOfForm }, make("ol", { class: "steps" },
      ...this.links.map((link) => make("li", {}, link))));
  }

  /** The first step leaves the address as it is. */
  private addressOf(index: number): string {
    return index === 0 ? this.address : `${this.address}?step=${this.steps[index]!.name}`;
  }

  indexOf(name: string): number {
    return Math.max(0, this.steps.findIndex((step) => step.name === name));
  }

  private follow(event: Event, index: number): void {
    event.preventDefault();
    this.go(index);
  }

  move(by: 1 | -1): void {
    this.go(this.at + by);
  }

  get atLast(): boolean {
    return this.at === this.steps.length - 1;
  }

  /** Goes there, or to what has to be filled in before; the browser's own way back leads here. */
  go(target: number): void {
    if (!this.stopped(target)) this.enter(target, "pushState");
  }

  /** The same for an address that the browser has already. */
  arrive(target: number): void {
    if (!this.stopped(target)) this.enter(target, "replaceState");
  }

  /** The first that is shown takes no focus away from the screen. */
  begin(target: number): void {
    this.open(target, "replaceState");
  }

  /** True when all is filled in well; otherwise shows what is not. */
  whole(): boolean {
    return !this.stopped(this.steps.length, 0);
  }

  private stopped(target: number, from = this.at): boolean {
    for (let index = from; index < target; ++index) {
      const trouble = troubleIn(this.sections[index]!, this.steps[index]!);
      if (!trouble) continue;
      this.open(index, index === this.at ? "replaceState" : "pushState");
      trouble.focus();
      return true;
    }
    return false;
  }

  /** Shows the step that has the node. */
  reveal(node: Node): void {
    const index = this.sections.findIndex((section) => section.contains(node));
    if (index >= 0 && index !== this.at) this.open(index, "pushState");
  }

  private enter(index: number, how: "pushState" | "replaceState"): void {
    this.open(index, how);
    this.sections[index]!.querySelector("h2")!.focus();
  }

  private open(index: number, how: "pushState" | "replaceState"): void {
    this.at = index;
    this.sections.forEach((section, each) => show(section, each === index));
    this.links.forEach((link, each) => mark(link, "aria-current", each === index ? "step" : null));
    const address = this.addressOf(index);
    if (location.hash !== address) history[how](null, "", address);
    this.shown(index === 0, this.atLast);
  }
}
