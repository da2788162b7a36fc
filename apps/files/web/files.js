// Started by the link's page: shows the files once the visitor is in.
(() => {
  let started = false;
  const start = () => {
    if (started) return;
    started = true;
    import('/pkg/files/view.js').then(({showFiles}) => showFiles());
  };
  document.addEventListener('velt-sharing-login', start);
  if (window.VELT?.TALD?.Login) start();
})();
