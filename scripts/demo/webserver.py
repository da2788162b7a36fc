"""lighttpd's configuration: what host/webserver/lighttpd.conf leaves open."""

import resource

SOCKET = "/usr/velt/var/run/webapid.sock"
SPOOL = "/usr/velt/var/spool/files"
FOLDER = "/usr/velt/etc/demo"
CONFIGURATION = FOLDER + "/lighttpd.conf"
_DESCRIPTORS = 65536
_CONNECTIONS = 4096

_TEXT = """\
server.bind = "127.0.0.1"
server.port = {port}
server.upload-dirs = ("/tmp")
server.feature-flags = ("server.graceful-shutdown-timeout" => 10)
{user}
mimetype.assign = (
  ".html" => "text/html; charset=utf-8", ".css" => "text/css; charset=utf-8",
  ".js" => "text/javascript; charset=utf-8", ".json" => "application/json",
  ".svg" => "image/svg+xml", ".png" => "image/png", ".jpg" => "image/jpeg", ".webp" => "image/webp",
  ".woff2" => "font/woff2", ".txt" => "text/plain; charset=utf-8", "" => "application/octet-stream")

var.velt = "/usr/velt"
var.velt_socket = "{socket}"
var.velt_spool = "{spool}/"
include "/usr/velt/share/webserver/lighttpd.conf"
server.max-connections := {connections}
server.max-fds := {descriptors}
"""


def configuration(port, account):
    """`account`: (user, group) that lighttpd becomes; None leaves it what it is."""
    user = f'server.username = "{account[0]}"\nserver.groupname = "{account[1]}"' if account else ""
    # An ordinary user can't raise the limit. If it is below max-fds, lighttpd would use far fewer.
    allowed = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    descriptors = _DESCRIPTORS if allowed == resource.RLIM_INFINITY else min(_DESCRIPTORS, allowed)
    return _TEXT.format(port=port, user=user, socket=SOCKET, spool=SPOOL, descriptors=descriptors,
                        connections=min(_CONNECTIONS, descriptors // 4))
