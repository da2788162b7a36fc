// Makes elements. Texts become text nodes; nothing here parses markup.

/**
 * Makes an element. `attributes` are set as attributes, where true sets an empty one and false, null
 * and undefined set none; `on` holds event listeners by name. Children are elements or texts; null and
 * false are skipped.
 */
export function make(tag, {on = {}, ...attributes} = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== false && value !== null && value !== undefined) {
      element.setAttribute(name, value === true ? '' : value);
    }
  }
  for (const [name, listener] of Object.entries(on)) element.addEventListener(name, listener);
  element.append(...children.filter((child) => child !== null && child !== false && child !== undefined));
  return element;
}
