// The page's own pictures: lines in a square of 24, in the colour of the text around them.

const PATHS = {
  ok: "M5 12.5l4.5 4.5L19 7.5",
  bad: "M12 4 21 19.5H3zM12 10v4.5M12 17v.5",
  run: "M12 4v11m-5-5 5 5 5-5M5 19.5h14",
  wait: "M12 3.5a8.5 8.5 0 1 0 .01 0M12 7.5V12l3 2",
  stop: "M7 7h10v10H7z",
  off: "M12 3.5a8.5 8.5 0 1 0 .01 0M6 6l12 12",
  fresh: "M12 5v14M5 12h14",
  start: "M8 5.5v13l10.5-6.5z",
  edit: "M5 19h3L18.5 8.5l-3-3L5 16zM13.5 7.5l3 3",
  copy: "M8.5 8.5h11v11h-11zM15.5 8.5v-4h-11v11h4",
  remove: "M5 7h14M9.5 7V4.5h5V7M7 7l1 12.5h8L17 7",
} as const;
export type Icon = keyof typeof PATHS;

const SPACE = "http://www.w3.org/2000/svg";

/** An element of a drawing. */
export function draw<K extends keyof SVGElementTagNameMap>(tag: K,
  attributes: Record<string, string | number>, ...children: (Node | string)[]):
  SVGElementTagNameMap[K] {
  const node = document.createElementNS(SPACE, tag);
  for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, String(value));
  node.append(...children);
  return node;
}

/** Words stand beside it, so a screen reader passes over it. */
export function icon(name: Icon): SVGSVGElement {
  return draw("svg", { viewBox: "0 0 24 24", class: "icon", "aria-hidden": "true" },
    draw("path", { d: PATHS[name] }));
}

export function changeIcon(node: SVGElement, name: Icon): void {
  const path = node.firstElementChild!;
  if (path.getAttribute("d") !== PATHS[name]) path.setAttribute("d", PATHS[name]);
}
