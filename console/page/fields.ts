// Form fields that are judged where they stand, by the same rules as the recorder's.
import { make, mark, say, show } from "./dom";
import { t } from "./texts";

export type Input = HTMLInputElement | HTMLSelectElement;

let numbers = 0;

interface Extras {
  hint?: string;
  /** What is wrong with the value; "": nothing. */
  check?: (value: string) => string;
}

/** A line that appears while a button is pressed would move it away from below the pointer. */
function afterPress(work: () => void): void {
  if (!document.querySelector("button:active")) return work();
  addEventListener("pointerup", () => setTimeout(work), { once: true });
}

/** A labelled field that says below what is wrong with it, once somebody has left it. */
export function field(label: string, input: Input, extras: Extras = {}): HTMLElement {
  const id = `f${++numbers}`;
  input.id = id; // a label around a list would have all its choices for a name
  const hint = make("small", { id: `${id}h` }, extras.hint ?? "");
  const trouble = make("small", { id: `${id}t`, class: "trouble", hidden: true });
  mark(input, "aria-describedby", `${id}h ${id}t`);
  const judge = (): void => {
    input.setCustomValidity(extras.check?.(input.value) ?? "");
    if (!trouble.hidden) tell();
  };
  const tell = (): void => {
    show(trouble, !input.validity.valid);
    say(trouble, input.validationMessage);
    mark(input, "aria-invalid", input.validity.valid ? null : "true");
  };
  input.addEventListener("input", judge);
  input.addEventListener("change", () => afterPress(tell));
  input.addEventListener("invalid", (event) => {
    event.preventDefault(); // the browser's own bubble would hide after seconds
    tell();
  });
  input.addEventListener("refused", (event) => {
    show(trouble, true);
    say(trouble, (event as CustomEvent<string>).detail);
    mark(input, "aria-invalid", "true");
  });
  judge();
  return make("div", { class: "field" }, make("label", { for: id }, label), input, hint, trouble);
}

/** Shows the recorder's refusal at the field that it is about, until it changes or is tried again:
 *  the same values may be taken then. */
export function refuseAt(input: Input, text: string): void {
  input.dispatchEvent(new CustomEvent("refused", { detail: text }));
  input.focus();
}

/** Has the fields below tell nothing but what is wrong with them by themselves. */
export function retell(root: HTMLElement): void {
  for (const input of root.querySelectorAll("[aria-invalid]")) {
    input.dispatchEvent(new Event("change"));
  }
}

/** A tick box, or one of several choices of a name. */
export function tick(label: string, input: HTMLInputElement, note = ""): HTMLElement {
  return make("label", { class: "tick" }, input,
    make("span", {}, label, ...(note ? [make("small", {}, note)] : [])));
}

export function section(title: string, ...children: (Node | string)[]): HTMLFieldSetElement {
  return make("fieldset", {}, make("legend", {}, title), ...children);
}

export function number(name: string, value: number, min: number, max: number): HTMLInputElement {
  return make("input", { name, type: "number", value, min, max, required: true,
    inputmode: "numeric" });
}

export function select(name: string, texts: Record<string, string>, value: string):
  HTMLSelectElement {
  return make("select", { name }, ...Object.entries(texts).map(([key, text]) =>
    make("option", { value: key, selected: key === value }, text)));
}

/** What the recorder's store can keep. */
export function storable(value: string): string {
  if (value.includes('"')) return t.noQuotes;
  if (/\p{Cc}/u.test(value)) return t.noControls;
  return new TextEncoder().encode(value).length > 255 ? t.tooLong : "";
}

export function serverIsGood(value: string): string {
  return /[\s/\\]/.test(value.trim()) ? t.badServerName : storable(value);
}

/** A path on the share. */
export function pathIsGood(value: string): string {
  return /["\\:|*?<>]/.test(value) ? t.badPath : storable(value);
}
