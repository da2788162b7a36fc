// A button that copies the link's address, to hand it on. Browsers offer the clipboard on HTTPS and on the
// machine itself only.
const texts = window.VELT.TALD.InitData.Strings['velt.modules.Utils'];

if (navigator.clipboard) {
  const button = document.createElement('button');
  button.id = 'copy-address';
  button.type = 'button';
  button.textContent = texts.title;
  button.addEventListener('click', async () => {
    await navigator.clipboard.writeText(location.origin + location.pathname);
    button.textContent = texts.copied;
  });
  document.querySelector('main').append(button);
}
