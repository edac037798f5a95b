// Something that the recorder tries out: what is being tried, and what came of it, in words.
import { words } from "./api";
import { make, say } from "./dom";
import { retell } from "./fields";

interface Attempt {
  label: string;
  /** Whether what it takes is filled in well; shows what is not. */
  ready: () => boolean;
  doing: () => string;
  /** Gives what came of it. */
  work: () => Promise<string>;
}

/** A button and what is said below it. A refusal is heard by the form, as event "refusal". */
export function trial({ label, ready, doing, work }: Attempt): HTMLElement[] {
  const outcome = make("p", { role: "status", class: "outcome" });
  const button = make("button", { type: "button", class: "plain", click: () => void attempt() },
    label);

  function tell(tone: "busy" | "good" | "bad", text: string): void {
    outcome.dataset["tone"] = tone;
    say(outcome, text);
  }

  async function attempt(): Promise<void> {
    if (button.getAttribute("aria-busy") === "true") return;
    retell(button.closest("form")!);
    if (!ready()) return;
    button.setAttribute("aria-busy", "true");
    tell("busy", doing());
    try {
      tell("good", await work());
    } catch (error) {
      tell("bad", words(error));
      button.dispatchEvent(new CustomEvent("refusal", { bubbles: true, detail: error }));
    } finally {
      button.removeAttribute("aria-busy");
    }
  }
  return [make("div", { class: "actions" }, button), outcome];
}
