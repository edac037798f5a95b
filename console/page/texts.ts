// The language of the page, chosen by the browser or by hand, and its texts.
import type { Texts } from "./texts_en";

/** All words of the page; whole when the page begins. */
export let t: Texts;

/** What the recorder says, in the page's language where its words are always the same. */
export const translated = (text: string): string => t.recorderTexts.get(text) ?? text;

const languages: Record<string, () => Promise<Texts>> = {
  en: async () => (await import("./texts_en")).english,
  de: async () => (await import("./texts_de")).german,
};
export const LANGUAGE_NAMES: [string, string][] = [["en", "English"], ["de", "Deutsch"]];

function chosen(): string {
  const wanted = [localStorage.getItem("language") ?? "", ...navigator.languages];
  return wanted.map((tag) => tag.slice(0, 2)).find((tag) => tag in languages) ?? "en";
}

/** Words are in this language. */
const language = chosen();
/** Numbers and dates are as they are written where the browser is. */
export const locale = navigator.languages.find((tag) => tag.startsWith(language)) ?? language;

export async function loadTexts(): Promise<void> {
  t = await languages[language]!();
  document.documentElement.lang = language;
}

/** "" leaves the choice to the browser. */
export function chooseLanguage(tag: string): void {
  if (tag) localStorage.setItem("language", tag);
  else localStorage.removeItem("language");
  location.reload();
}
