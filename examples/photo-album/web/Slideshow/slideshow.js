// A button that shows the album's pictures one after another.
const {Strings} = window.VELT.TALD.InitData;
const texts = Strings['pkg.photo-album.Slideshow'];
const album = document.getElementById('album');
const figures = [...(album?.querySelectorAll('figure') ?? [])];

if (figures.length > 1) {
  const button = document.createElement('button');
  button.id = 'slideshow';
  button.type = 'button';
  button.textContent = texts.start;
  button.addEventListener('click', () => {
    const shown = Number(album.dataset.slide ?? -1);
    const slide = (shown + 1) % figures.length;
    figures[shown]?.classList.remove('slide');
    figures[slide].classList.add('slide');
    album.dataset.slide = slide;
    button.textContent = texts.next;
  });
  album.append(button);
}
