// Visits over time as bars.

import {t} from '/shared/texts.js';

const SVG = 'http://www.w3.org/2000/svg';
const STEP = 4; // a bar and the gap behind it
const HEIGHT = 24;

/** How many of the latest days a chart shows. */
export const DAYS = 30;

function draw(tag, attributes) {
  const element = document.createElementNS(SVG, tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  return element;
}

/** The sum of the shown days of `visits`, which holds one number for each day, today's last. */
export function sumOf(visits) {
  return visits.slice(-DAYS).reduce((sum, count) => sum + count, 0);
}

export function drawChart(visits) {
  const shown = visits.slice(-DAYS);
  const most = Math.max(1, ...shown);
  const chart = draw('svg', {
    class: 'days', viewBox: `0 0 ${shown.length * STEP - 1} ${HEIGHT}`, preserveAspectRatio: 'none', role: 'img',
    'aria-label': t('chart', {days: shown.length, sum: sumOf(visits), most: Math.max(...shown)}),
  });
  chart.append(...shown.map((count, day) => {
    const height = count === 0 ? 1 : Math.max(3, Math.round(count / most * HEIGHT));
    return draw('rect', {
      class: count === 0 ? 'none' : 'some', x: day * STEP, y: HEIGHT - height, width: STEP - 1, height,
    });
  }));
  return chart;
}
