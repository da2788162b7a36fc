// The session script assigns VELT.TALD.Session. These two are for application scripts that start late. The page sets
// them after the document's DOMContentLoaded:
//   VELT.TALD.Login     {private}: the detail of the document's event "velt-sharing-login"; null before
//   VELT.TALD.InitData  the detail of "velt-sharing-initdata"; null before
window.VELT = {TALD: {Login: null, InitData: null}};
