document.addEventListener('DOMContentLoaded', () => {
  const paragraph = document.createElement('p');
  paragraph.textContent = window.VELT.TALD.ExtraSession.greeting;
  document.querySelector('main').append(paragraph);
});
