// The session script assigns VELT.TALD.Session, and an application's script finds the latest login and
// init data beside it, however late it starts. Both come after the document's DOMContentLoaded:
//   VELT.TALD.Login     {private}: what the document's event "velt-sharing-login" carried; null before
//   VELT.TALD.InitData  what "velt-sharing-initdata" carried; null before
window.VELT = {TALD: {Login: null, InitData: null}};
