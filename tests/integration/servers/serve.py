#!/usr/bin/python3
"""Runs one of the servers that the tests talk to, on free ports of the loopback interface.

    serve.py odd|httpbin|nginx|ftp FOLDER

The port is bound here and handed over, so that nobody can take it meanwhile. Says "listening on
port N", and for nginx "listening on port N with TLS", on standard output. Runs until SIGTERM, or
until the program that started it ends. Files go to FOLDER; nginx serves FOLDER/files, and
FOLDER/ca.pem is the authority that signed its certificate, which FOLDER/authorities holds beside
another one, hashed; the FTP server serves FOLDER/files to everyone. Exits with 77 if a program that
it needs is not installed.
"""

import ctypes
import importlib.util
import logging
import os
import shutil
import signal
import socket
import string
import subprocess
import sys

import odd_server

NOT_INSTALLED = 77
HERE = os.path.dirname(os.path.abspath(__file__))
BROTLI_MODULE = "/usr/lib/nginx/modules/ngx_http_brotli_filter_module.so"


def require(present, name):
    if not present:
        print(name + " is not installed", file=sys.stderr)
        sys.exit(NOT_INSTALLED)


def find_program(name):
    path = shutil.which(name, path=os.environ.get("PATH", "") + ":/usr/sbin")
    require(path, name)
    return path


def end_with_parent():
    pr_set_pdeathsig = 1
    ctypes.CDLL(None).prctl(pr_set_pdeathsig, signal.SIGTERM)


def listen():
    listener = socket.socket()
    listener.bind(("127.0.0.1", 0))
    listener.listen(128)
    return listener


def tell(listener, suffix=""):
    print("listening on port %d%s" % (listener.getsockname()[1], suffix), flush=True)


def hand_over(listener):
    os.set_inheritable(listener.fileno(), True)
    return listener.fileno()


def make_certificates():
    """A certificate for 127.0.0.1 alone, signed by an authority made for this run."""
    make = [
        "openssl",
        "req",
        "-x509",
        "-newkey",
        "ec",
        "-pkeyopt",
        "ec_paramgen_curve:P-256",
        "-nodes",
        "-days",
        "2",
    ]
    authority = ["-subj", "/CN=test authority", "-keyout", "ca.key", "-out", "ca.pem"]
    server = [
        "-subj",
        "/CN=test server",
        "-addext",
        "subjectAltName=IP:127.0.0.1",
        "-CA",
        "ca.pem",
        "-CAkey",
        "ca.key",
        "-keyout",
        "server.key",
        "-out",
        "server.pem",
    ]
    os.mkdir("authorities")
    other = [
        "-subj",
        "/CN=other authority",
        "-keyout",
        "other.key",
        "-out",
        "authorities/other.pem",
    ]
    for arguments in (authority, server, other):
        subprocess.run(make + arguments, check=True, stderr=subprocess.DEVNULL)
    shutil.copy("ca.pem", "authorities")
    subprocess.run(["openssl", "rehash", "authorities"], check=True)


def serve_odd(_):
    signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
    listener = listen()
    tell(listener)
    sys.exit(odd_server.serve(listener))


def serve_httpbin(folder):
    gunicorn = find_program("gunicorn")
    require(importlib.util.find_spec("httpbin"), "python3-httpbin")
    listener = listen()
    tell(listener)
    os.execv(
        gunicorn,
        [
            gunicorn,
            "--bind",
            "fd://%d" % hand_over(listener),
            "--worker-tmp-dir",
            folder,
            "--log-level",
            "warning",
            "httpbin:app",
        ],
    )


def serve_nginx(folder):
    nginx = find_program("nginx")
    require(os.path.exists(BROTLI_MODULE), "libnginx-mod-http-brotli-filter")
    find_program("openssl")
    make_certificates()
    os.mkdir("files")
    plain, tls = listen(), listen()
    values = {
        "PORT": plain.getsockname()[1],
        "TLS_PORT": tls.getsockname()[1],
        # Started by root, its worker would be a user who may not enter the folder.
        "USER_LINE": "user root;" if os.geteuid() == 0 else "",
    }
    with open(os.path.join(HERE, "nginx.conf")) as template, open("nginx.conf", "w") as conf:
        conf.write(string.Template(template.read()).safe_substitute(values))
    tell(plain)
    tell(tls, " with TLS")
    # How nginx takes over the sockets of a running one.
    os.environ["NGINX"] = "%d;%d;" % (hand_over(plain), hand_over(tls))
    os.execv(nginx, [nginx, "-p", folder, "-e", "error.log", "-c", "nginx.conf"])


def serve_ftp(_):
    require(importlib.util.find_spec("pyftpdlib"), "python3-pyftpdlib")
    from pyftpdlib import authorizers, handlers, servers

    os.mkdir("files")
    authorizer = authorizers.DummyAuthorizer()
    authorizer.add_anonymous("files")
    handlers.FTPHandler.authorizer = authorizer
    listener = listen()
    server = servers.FTPServer(listener, handlers.FTPHandler)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    logging.disable()
    tell(listener)
    server.serve_forever()


def main():
    kind, folder = sys.argv[1:]
    os.chdir(folder)
    end_with_parent()
    {"odd": serve_odd, "httpbin": serve_httpbin, "nginx": serve_nginx, "ftp": serve_ftp}[kind](
        folder
    )


if __name__ == "__main__":
    main()
