"""Certificates, and a server that speaks TLS, for the tests of the command-line client."""

import atexit
import os
import shutil
import socket
import ssl
import subprocess
import sys
import tempfile

from client_support import Server, TIMEOUT


class Certificates:
    """Of an authority, of a server at 127.0.0.1 and of a client; made when first asked for."""

    _folder = None

    @classmethod
    def path(cls, name):
        if not cls._folder:
            cls._folder = tempfile.mkdtemp()
            atexit.register(shutil.rmtree, cls._folder)
            cls._make()
        return os.path.join(cls._folder, name)

    @classmethod
    def _make(cls):
        cls._certify("authority")
        signed = ("-CA", "authority.pem", "-CAkey", "authority.key")
        cls._certify("server", *signed, "-addext", "subjectAltName=IP:127.0.0.1")
        cls._certify("client", *signed)
        folder = os.path.join(cls._folder, "authorities")
        os.mkdir(folder)
        shutil.copy(os.path.join(cls._folder, "authority.pem"), folder)
        cls._openssl("rehash", "authorities")
        os.mkdir(os.path.join(cls._folder, "empty"))
        with open(os.path.join(cls._folder, "both.pem"), "w", encoding="ascii") as both:
            for name in ("client.pem", "client.key"):
                with open(os.path.join(cls._folder, name), encoding="ascii") as one:
                    both.write(one.read())

    @classmethod
    def _certify(cls, name, *options):
        key = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes")
        files = ("-keyout", name + ".key", "-out", name + ".pem")
        subject = ("-subj", "/CN=test " + name, "-days", "2")
        cls._openssl("req", "-x509", *key, *files, *subject, *options)

    @classmethod
    def _openssl(cls, *arguments):
        subprocess.run(["openssl", *arguments], cwd=cls._folder, check=True, stderr=subprocess.PIPE)


class TlsServer(Server):
    def __init__(self, demands_client_certificate=False):
        super().__init__()
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(Certificates.path("server.pem"), Certificates.path("server.key"))
        if demands_client_certificate:
            context.verify_mode = ssl.CERT_REQUIRED
            context.load_verify_locations(Certificates.path("authority.pem"))
        # The thread of the connection makes the handshake, at its first read.
        self._server.socket = context.wrap_socket(
            self._server.socket, server_side=True, do_handshake_on_connect=False
        )
        self._tell = self._server.handle_error
        self._server.handle_error = self._take_error

    def _take_error(self, connection, address):
        """That client or server refuses the other one is what tests want."""
        if not isinstance(sys.exc_info()[1], (ssl.SSLError, ConnectionError)):
            self._tell(connection, address)
            return
        # To close before all has been read would reset the connection; the alert could get lost.
        with socket.socket(fileno=os.dup(connection.fileno())) as plain:
            try:
                plain.settimeout(TIMEOUT)
                plain.shutdown(socket.SHUT_WR)
                while plain.recv(65536):
                    pass
            except OSError:
                pass  # the client has gone

    def url(self, path):
        return super().url(path).replace("http:", "https:", 1)
