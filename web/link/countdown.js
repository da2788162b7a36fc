// A countdown in the page.

import {t} from '/shared/texts.js';

const DAY = 86400; // seconds; more are not counted in the page

const two = (number) => String(number).padStart(2, '0');

function remaining(seconds) {
  const hours = Math.floor(seconds / 3600);
  const clock = `${two(Math.floor(seconds / 60) % 60)}:${two(seconds % 60)}`;
  return hours > 0 ? `${two(hours)}:${clock}` : clock;
}

/**
 * Counts `seconds` down in `place`, with the time in the text of `key` on the last day, and then calls `done`. Returns what ends it.
 * It compares the clock with the moment of the end, so a machine that slept meanwhile is not late.
 */
export function countDown(place, key, seconds, done) {
  const end = Date.now() + seconds * 1000;
  let timer;
  const stop = () => clearInterval(timer);
  const tick = () => {
    const left = Math.ceil((end - Date.now()) / 1000);
    if (left > 0) {
      place.hidden = left > DAY;
      place.textContent = t(key, {time: remaining(left)});
      return;
    }
    stop();
    done();
  };
  timer = setInterval(tick, 1000);
  tick();
  return stop;
}
