// What an error means to the visitor of a link.

import {explain} from '/shared/errors.js';
import {hasText, t} from '/shared/texts.js';

/** {text, field}: plain words, and the name of the form's field that they are about, or null. */
export function explainToVisitor(error) {
  // A refused address either has to wait or belongs to another visit.
  if (error.code === 1008) return {text: t(error.wait > 0 ? 'visitor_too_many' : 'visitor_1008'), field: null};
  const {text, field} = explain(error);
  return {text: hasText(`visitor_${error.code}`) ? t(`visitor_${error.code}`) : text, field};
}
