// A button that copies the link's address. Browsers offer the clipboard only on HTTPS and on the machine itself.
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
  document.getElementById('actions').prepend(button);
}
