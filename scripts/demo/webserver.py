"""lighttpd's configuration: files, owner authentication, limits, and FastCGI to the workers."""

import json
import resource

SOCKET = "/usr/velt/var/run/webapid.sock"
FAILURES = "/usr/velt/var/failures"  # wrong passwords of each owner
SPOOL = "/usr/velt/var/spool/files"
FOLDER = "/usr/velt/etc/demo"
PASSWORDS = FOLDER + "/htpasswd"
CONFIGURATION = FOLDER + "/lighttpd.conf"
PAM_SERVICE = "velt-web"
_DESCRIPTORS = 16384
_CONNECTIONS = 4096

# No access log: an address under /sharing/ is the secret of a link. No mod_extforward: what a client sends as
# X-Forwarded-For must not become its address.
_TEXT = """\
server.modules = ("mod_auth", "mod_authn_pam", "mod_setenv", "mod_deflate", "mod_fastcgi")
server.bind = "127.0.0.1"
server.port = {port}
server.document-root = "/usr/velt/web"
server.upload-dirs = ("/tmp")
server.tag = ""
server.feature-flags = ("server.graceful-shutdown-timeout" => 10)
{user}

# Connections. No limit is for a single address, because many visitors may share one.
# The most at a time; later ones wait in the system's queue until one ends.
server.max-connections = {connections}
# Three for each connection (itself, its worker, its body in a file) and some to spare.
server.max-fds = {descriptors}
# The system's queue of connections that are not accepted yet.
server.listen-backlog = 4096
# Seconds that a client may be silent before or within a request ...
server.max-read-idle = 10
# ... or between two requests, ...
server.max-keep-alive-idle = 5
# ... and seconds that it may read nothing of an answer.
server.max-write-idle = 30
# Bytes of a request's header. This also limits a client that sends its header byte by byte, for which there is no
# time limit.
server.max-request-field-size = 8192

# KiB of a body, which is kept here until it is complete: first a visitor's, below an owner's, who has logged in. The
# workers refuse more than 64 KiB and 1 MiB with the API's own answer, so they must get a little more.
server.max-request-size = 72
# A body that is still larger gets the same answer from a file; lighttpd requires a name that ends in .html.
$HTTP["url"] =~ "^/webapi/entry\\.cgi" {{
  server.max-request-size = 1100
  server.errorfile-prefix = "{folder}/owner-"
  mimetype.assign = (".html" => "application/json; charset=\\"UTF-8\\"")
}}
$HTTP["url"] =~ "^/sharing/[^/]*/webapi$" {{
  server.errorfile-prefix = "{folder}/visitor-"
  mimetype.assign = (".html" => "application/json; charset=\\"UTF-8\\"")
  # A piece of an upload.
  $REQUEST_HEADER["Content-Type"] == "application/octet-stream" {{ server.max-request-size = 4200 }}
}}
index-file.names = ("index.html")
mimetype.assign = (
  ".html" => "text/html; charset=utf-8", ".css" => "text/css; charset=utf-8",
  ".js" => "text/javascript; charset=utf-8", ".json" => "application/json",
  ".svg" => "image/svg+xml", ".png" => "image/png", ".jpg" => "image/jpeg", ".webp" => "image/webp",
  ".woff2" => "font/woff2", ".txt" => "text/plain; charset=utf-8", "" => "application/octet-stream")

# Pages' files are compressed. Answers with secrets are not: their length would reveal something of them.
$HTTP["url"] =~ "^/(?!sharing/|webapi/)" {{
  deflate.mimetypes = ("text/html", "text/css", "text/javascript", "application/json", "image/svg+xml")
  deflate.allowed-encodings = ("gzip")
}}

# The PAM service counts wrong passwords; its limits are in /etc/security/faillock.conf. No auth.cache: guesses at a
# cached account would not be counted.
auth.backend = "pam"
auth.backend.pam.opts = ("service" => "{service}")

# The owner's page and API ask for a login. The link page and the files that pages use don't.
$HTTP["url"] =~ "^/((index\\.html|owner|webapi)(/.*)?)?$" {{
  auth.require = ("" => ("method" => "basic", "realm" => "Share links", "require" => "valid-user"))
}}
$HTTP["url"] =~ "^/(index\\.html|owner/.*|webapi/(docs/.*|openapi\\.json))?$" {{
  setenv.set-response-header = (
    "Content-Security-Policy" => "{policy}",
    "Cross-Origin-Opener-Policy" => "same-origin", "Cross-Origin-Resource-Policy" => "same-origin",
    "X-Content-Type-Options" => "nosniff", "X-Frame-Options" => "DENY", "Cache-Control" => "no-cache")
}}
else $HTTP["url"] !~ "^/(sharing|webapi)/" {{
  setenv.set-response-header = (
    "X-Content-Type-Options" => "nosniff", "X-Frame-Options" => "DENY", "Cache-Control" => "no-cache")
}}
# The module sets few header fields for the session script. Pages of other sites may not include the script: they would
# learn about appliances that only their visitor can reach.
$HTTP["url"] =~ "^/sharing/[^/]*/webapi$" {{
  setenv.set-response-header = (
    "X-Content-Type-Options" => "nosniff", "Cache-Control" => "no-store", "Cross-Origin-Resource-Policy" => "same-site")
}}
# A worker gives up after two minutes. A client waits a little longer, whatever happens to the worker. When a client
# leaves, its worker sees the end of the stream.
var.worker = (("socket" => "{socket}", "check-local" => "disable",
               "write-timeout" => 130, "read-timeout" => 130, "tcp-fin-propagate" => "enable",
               # The files that may be sent: those that a worker has linked into the spool.
               "x-sendfile" => "enable", "x-sendfile-docroot" => ("{spool}/")))
# A long answer waits in the worker until the client reads it, not in lighttpd's memory or files.
$HTTP["url"] =~ "^/sharing/" {{ server.stream-response-body = 2 }}
fastcgi.server = ("/webapi/entry.cgi" => var.worker, "/sharing/" => var.worker)
"""
# The policy of web/index.html, which has it for servers that send none, and frame-ancestors, which a page can't set.
_POLICY = ("default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
           "base-uri 'none'; form-action 'none'; frame-ancestors 'none'")


def configuration(port, account):
    """`account`: (user, group) that lighttpd becomes; None leaves it what it is."""
    user = f'server.username = "{account[0]}"\nserver.groupname = "{account[1]}"' if account else ""
    # An ordinary user can't raise the limit. If it is below max-fds, lighttpd would use far fewer.
    allowed = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    descriptors = _DESCRIPTORS if allowed == resource.RLIM_INFINITY else min(_DESCRIPTORS, allowed)
    return _TEXT.format(port=port, user=user, socket=SOCKET, folder=FOLDER, service=PAM_SERVICE, policy=_POLICY,
                        descriptors=descriptors, connections=min(_CONNECTIONS, descriptors // 4), spool=SPOOL)


def error_pages():
    """(path, text) of the files with the API's answers to a body that is too large."""
    for side, limit in (("owner", "1 MiB"), ("visitor", "64 KiB")):
        answer = {"error": {"code": 106, "errors": f"request body is larger than {limit}"}, "success": False}
        yield f"{FOLDER}/{side}-413.html", json.dumps(answer) + "\n"
