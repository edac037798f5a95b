// The few helpers that keep the page's nodes: making them once, and changing what has changed.

export type Attributes = Record<string, string | number | boolean | ((event: Event) => void)>;
type Child = Node | string;

/** A new element. Functions listen to the event of their name; true is an empty attribute. */
export function make<K extends keyof HTMLElementTagNameMap>(
  tag: K, attributes: Attributes = {}, ...children: Child[]): HTMLElementTagNameMap[K] {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (typeof value === "function") node.addEventListener(name, value);
    else if (value === true) node.setAttribute(name, "");
    else if (value !== false) node.setAttribute(name, String(value));
  }
  node.append(...children);
  return node;
}

/** The one element of its kind below `root` that has the name as its part. */
export function part<T extends Element = HTMLElement>(root: ParentNode, name: string): T {
  return root.querySelector<T>(`[data-part=${name}]`)!;
}

/** Shows the text; a node that says it already is left alone, so that a selection in it stays. */
export function say(node: Element, text: string): void {
  if (node.textContent !== text) node.textContent = text;
}

export function show(node: HTMLElement | SVGElement, shown: boolean): void {
  node.toggleAttribute("hidden", !shown);
}

export function mark(node: Element, name: string, value: string | null): void {
  if (value === null) node.removeAttribute(name);
  else if (node.getAttribute(name) !== value) node.setAttribute(name, value);
}

/** By what a child of a list is known again. */
const keys = new WeakMap<Element, string>();

/** Gives `parent` a child for each item, in order: known ones stay the nodes they are. */
export function list<T, E extends HTMLElement>(parent: Element, items: T[],
  key: (item: T) => string, create: (item: T) => E, update: (node: E, item: T) => void): void {
  const wanted = new Set(items.map(key));
  const known = new Map<string, E>();
  for (const child of [...parent.children]) {
    const name = keys.get(child);
    if (name !== undefined && wanted.has(name)) known.set(name, child as E);
    else child.remove();
  }
  let place = parent.firstElementChild;
  for (const item of items) {
    const node = known.get(key(item)) ?? create(item);
    keys.set(node, key(item));
    update(node, item);
    if (node === place) place = node.nextElementSibling;
    else move(parent, node, place);
  }
}

/** Puts a node before another; where it has the focus, it keeps it. */
function move(parent: Element, node: HTMLElement, before: Element | null): void {
  const focused = node.contains(document.activeElement) ? document.activeElement : null;
  parent.insertBefore(node, before);
  if (focused instanceof HTMLElement) focused.focus({ preventScroll: true });
}
