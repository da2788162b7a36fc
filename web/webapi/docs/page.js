// Shows the description of the API. Calls made from here are real, in the name of whoever is signed in.
async function isSignedIn() {
  try {
    const answer = await fetch('/webapi/entry.cgi?api=VELT.Core.SignIn&version=1&method=get', {cache: 'no-store'});
    return (await answer.json()).data.account !== '';
  } catch {
    return true; // The description can be read without the service.
  }
}

async function show() {
  if (!await isSignedIn()) {
    return void location.replace(`/signin/?back=${encodeURIComponent(location.pathname + location.hash)}`);
  }
  if (!window.SwaggerUIBundle) return;
  window.SwaggerUIBundle({
    url: '../openapi.json',
    dom_id: '#api',
    deepLinking: true,
    docExpansion: 'list',
    defaultModelsExpandDepth: -1,
    validatorUrl: null, // else another site is asked
  });
}

show();
