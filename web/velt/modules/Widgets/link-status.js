// Shows the visitor how long the link is open and how many visits are left.
import {showMoment} from '/shared/texts.js';

const {Sharing, Strings} = window.VELT.TALD.InitData;
const texts = Strings['velt.modules.Widgets'];

const told = [];
if (Sharing.expire_at) told.push(texts.until.replace('{time}', showMoment(Sharing.expire_at)));
if (Sharing.expire_times > 0) told.push(texts.visits.replace('{count}', Math.max(0, Sharing.expire_times - Sharing.visits)));

if (told.length > 0) {
  const status = document.createElement('p');
  status.id = 'link-status';
  status.textContent = told.join(' ');
  document.getElementById('about').append(status);
}
