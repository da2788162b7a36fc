// Shows the plugin's session data to everybody, and its private data after the login.
(() => {
  const {TALD} = window.VELT;

  function element(name, properties = {}, ...children) {
    const made = Object.assign(document.createElement(name), properties);
    made.append(...children);
    return made;
  }

  function showSummary() {
    const {title, count} = TALD.ExtraSession ?? {};
    if (title === undefined) return;
    const pictures = count === 1 ? '1 picture' : `${count} pictures`;
    document.querySelector('main').append(
      element('section', {id: 'album'}, element('h2', {textContent: title}), element('p', {textContent: pictures})));
  }

  // `detail.private` is null when the page could not restore it after a reload.
  function showPhotos({detail}) {
    const photos = detail.private?.photos ?? [];
    document.getElementById('album')?.append(...photos.map(({src, caption}) =>
      element('figure', {}, element('img', {src, alt: caption}), element('figcaption', {textContent: caption}))));
  }

  document.addEventListener('DOMContentLoaded', showSummary);
  document.addEventListener('velt-sharing-login', showPhotos);
})();
