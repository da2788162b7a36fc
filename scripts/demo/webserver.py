"""lighttpd's configuration: files, owner authentication, and FastCGI to the workers."""

SOCKET = "/usr/velt/var/run/webapid.sock"
FOLDER = "/usr/velt/etc/demo"
PASSWORDS = FOLDER + "/htpasswd"
CONFIGURATION = FOLDER + "/lighttpd.conf"

# No access log: an address under /sharing/ is the secret of a link. mod_extforward is left out on
# purpose: what a client says in X-Forwarded-For must not become its address.
_TEXT = """\
server.modules = ("mod_auth", "mod_authn_file", "mod_setenv", "mod_fastcgi")
server.bind = "127.0.0.1"
server.port = {port}
server.document-root = "/usr/velt/web"
server.upload-dirs = ("/tmp")
server.tag = ""
server.feature-flags = ("server.graceful-shutdown-timeout" => 10)
{user}
# The workers refuse a body over 1 MiB with the API's own answer, so they must get to see it.
server.max-request-size = 1100
index-file.names = ("index.html")
mimetype.assign = (
  ".html" => "text/html; charset=utf-8", ".css" => "text/css; charset=utf-8",
  ".js" => "text/javascript; charset=utf-8", ".json" => "application/json",
  ".svg" => "image/svg+xml", ".png" => "image/png", ".jpg" => "image/jpeg", ".webp" => "image/webp",
  ".woff2" => "font/woff2", ".txt" => "text/plain; charset=utf-8", "" => "application/octet-stream")

auth.backend = "htpasswd"
auth.backend.htpasswd.userfile = "{passwords}"
# A right password is hashed once in ten minutes, not at every request.
auth.cache = ("max-age" => "600")

# The owner's page and API ask for a login. The link page and the files that pages use don't.
$HTTP["url"] =~ "^/((index\\.html|owner|webapi)(/.*)?)?$" {{
  auth.require = ("" => ("method" => "basic", "realm" => "Share links", "require" => "valid-user"))
}}
$HTTP["url"] !~ "^/(sharing|webapi)/" {{
  setenv.set-response-header = (
    "X-Content-Type-Options" => "nosniff", "X-Frame-Options" => "DENY", "Cache-Control" => "no-cache")
}}
# The session script has the module's own header alone. Pages of other sites may not include it, and so learn of
# appliances that only their visitor reaches.
$HTTP["url"] =~ "^/sharing/[^/]*/webapi$" {{
  setenv.set-response-header = (
    "X-Content-Type-Options" => "nosniff", "Cache-Control" => "no-store", "Cross-Origin-Resource-Policy" => "same-site")
}}
fastcgi.server = (
  "/webapi/entry.cgi" => (("socket" => "{socket}", "check-local" => "disable")),
  "/sharing/" => (("socket" => "{socket}", "check-local" => "disable")))
"""


def configuration(port, account):
    """`account`: (user, group) that lighttpd becomes; None leaves it what it is."""
    user = f'server.username = "{account[0]}"\nserver.groupname = "{account[1]}"' if account else ""
    return _TEXT.format(port=port, user=user, socket=SOCKET, passwords=PASSWORDS)
