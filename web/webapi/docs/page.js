// Shows the description of the API. Calls made from here are real, in the name of whoever is logged in.
if (window.SwaggerUIBundle) {
  window.SwaggerUIBundle({
    url: '../openapi.json',
    dom_id: '#api',
    deepLinking: true,
    docExpansion: 'list',
    defaultModelsExpandDepth: -1,
    validatorUrl: null, // else another site is asked
  });
}
