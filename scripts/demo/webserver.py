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

# No access log: an address under /sharing/ is the secret of a link. mod_extforward is left out on
# purpose: what a client says in X-Forwarded-For must not become its address.
_TEXT = """\
server.modules = ("mod_auth", "mod_authn_pam", "mod_setenv", "mod_fastcgi")
server.bind = "127.0.0.1"
server.port = {port}
server.document-root = "/usr/velt/web"
server.upload-dirs = ("/tmp")
server.tag = ""
server.feature-flags = ("server.graceful-shutdown-timeout" => 10)
{user}

# Connections. None of these limits is for one address, since many visitors may share one.
# Most at a time; who comes later waits in the system's queue until one ends.
server.max-connections = {connections}
# Three for each connection (itself, its worker, its body in a file) and some to spare.
server.max-fds = {descriptors}
# The system's queue of those that are not accepted yet.
server.listen-backlog = 4096
# Seconds that a client may keep silent with a request begun or none sent yet ...
server.max-read-idle = 10
# ... or between two requests ...
server.max-keep-alive-idle = 5
# ... and take nothing of an answer.
server.max-write-idle = 30
# Bytes of a request's header, and so of one that drips: nothing bounds its time.
server.max-request-field-size = 8192

# KiB of a body, which is kept here until it is whole: a visitor's, and below an owner's, who has logged in before. The
# workers refuse 64 KiB and 1 MiB with the API's own answer, so they must get to see a little more.
server.max-request-size = 72
# What is larger still gets the same answer from a file; the server wants its name to end in .html.
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

# The service counts wrong passwords; what it allows stands in /etc/security/faillock.conf. No auth.cache: guesses at
# an account that is in it are answered from there, uncounted.
auth.backend = "pam"
auth.backend.pam.opts = ("service" => "{service}")

# The owner's page and API ask for a login. The link page and the files that pages use don't.
$HTTP["url"] =~ "^/((index\\.html|owner|webapi)(/.*)?)?$" {{
  auth.require = ("" => ("method" => "basic", "realm" => "Share links", "require" => "valid-user"))
}}
$HTTP["url"] =~ "^/(index\\.html|owner/.*)?$" {{
  setenv.set-response-header = (
    "Content-Security-Policy" => "{policy}",
    "Cross-Origin-Opener-Policy" => "same-origin", "Cross-Origin-Resource-Policy" => "same-origin",
    "X-Content-Type-Options" => "nosniff", "X-Frame-Options" => "DENY", "Cache-Control" => "no-cache")
}}
else $HTTP["url"] !~ "^/(sharing|webapi)/" {{
  setenv.set-response-header = (
    "X-Content-Type-Options" => "nosniff", "X-Frame-Options" => "DENY", "Cache-Control" => "no-cache")
}}
# The session script has the module's own header alone. Pages of other sites may not include it, and so learn of
# appliances that only their visitor reaches.
$HTTP["url"] =~ "^/sharing/[^/]*/webapi$" {{
  setenv.set-response-header = (
    "X-Content-Type-Options" => "nosniff", "Cache-Control" => "no-store", "Cross-Origin-Resource-Policy" => "same-site")
}}
# A worker gives up after two minutes; a client waits little longer, whatever becomes of the worker. When a client has
# left, its worker sees the end of the stream.
var.worker = (("socket" => "{socket}", "check-local" => "disable",
               "write-timeout" => 130, "read-timeout" => 130, "tcp-fin-propagate" => "enable",
               # Files are sent from here, by the name that a worker gives them in the spool.
               "x-sendfile" => "enable", "x-sendfile-docroot" => ("{spool}/")))
# A long answer waits in the worker for its reader, not in this program's memory or files.
$HTTP["url"] =~ "^/sharing/" {{ server.stream-response-body = 2 }}
fastcgi.server = ("/webapi/entry.cgi" => var.worker, "/sharing/" => var.worker)
"""
# As in web/index.html, for servers in front that send none, and what a page can't say of itself.
_POLICY = ("default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
           "base-uri 'none'; form-action 'none'; frame-ancestors 'none'")


def configuration(port, account):
    """`account`: (user, group) that lighttpd becomes; None leaves it what it is."""
    user = f'server.username = "{account[0]}"\nserver.groupname = "{account[1]}"' if account else ""
    # An ordinary user can't raise the limit; below what it wants the server would fall back to far less.
    allowed = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    descriptors = _DESCRIPTORS if allowed == resource.RLIM_INFINITY else min(_DESCRIPTORS, allowed)
    return _TEXT.format(port=port, user=user, socket=SOCKET, folder=FOLDER, service=PAM_SERVICE, policy=_POLICY,
                        descriptors=descriptors, connections=min(_CONNECTIONS, descriptors // 4), spool=SPOOL)


def error_pages():
    """(path, text) of the files with the API's answers to a body that is too large."""
    for side, limit in (("owner", "1 MiB"), ("visitor", "64 KiB")):
        answer = {"error": {"code": 106, "errors": f"request body is larger than {limit}"}, "success": False}
        yield f"{FOLDER}/{side}-413.html", json.dumps(answer) + "\n"
