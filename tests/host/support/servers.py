"""Servers that uploads are tested against: `servers.py ftp|mail --root DIR [...]`.

Prints its port when it takes connections. FTP keeps files below DIR. Mail keeps, for the n-th one, n.eml, and as
Python's own parser understands it n.attachment, n.name, n.subject and n.envelope.
"""
import argparse
import email
import email.policy
import logging
import os
import socket
import ssl
import time
import warnings

USER, PASSWORD = "cam", "s3cret-pa55"


def arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("service", choices=["ftp", "mail", "ftp-clear-data"])
    parser.add_argument("--root", required=True)
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--tls", choices=["explicit", "implicit"])
    parser.add_argument("--cert")
    parser.add_argument("--bytes-per-second", type=int, default=0)
    return parser.parse_args()


def ready(port):
    print(port, flush=True)


def serve_ftp(options):
    from pyftpdlib.authorizers import DummyAuthorizer
    from pyftpdlib.handlers import FTPHandler, ThrottledDTPHandler
    from pyftpdlib.servers import FTPServer

    if options.bytes_per_second:
        FTPHandler.dtp_handler = ThrottledDTPHandler
        FTPHandler.dtp_handler.read_limit = options.bytes_per_second
    FTPHandler.authorizer = DummyAuthorizer()
    FTPHandler.authorizer.add_user(USER, PASSWORD, options.root, perm="elradfmwMT")
    FTPHandler.auth_failed_timeout = 0
    server = FTPServer(("127.0.0.1", options.port), FTPHandler)
    ready(server.address[1])
    server.serve_forever()


VSFTPD = """
listen=YES
listen_address=127.0.0.1
background=NO
run_as_launching_user=YES
seccomp_sandbox=NO
anonymous_enable=YES
anon_upload_enable=YES
anon_mkdir_write_enable=YES
anon_other_write_enable=YES
anon_world_readable_only=NO
allow_writeable_chroot=YES
write_enable=YES
xferlog_enable=NO
ssl_enable=YES
ssl_ciphers=HIGH
allow_anon_ssl=YES
force_anon_logins_ssl=YES
force_anon_data_ssl=YES
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def serve_ftps(options):
    """With TLS another server, for the user "anonymous" and any password."""
    port = options.port or free_port()
    config = options.root + ".conf"
    settings = {"listen_port": port, "anon_root": options.root, "secure_chroot_dir": options.root,
                "rsa_cert_file": options.cert, "rsa_private_key_file": options.cert,
                "implicit_ssl": "YES" if options.tls == "implicit" else "NO"}
    with open(config, "w") as file:
        file.write(VSFTPD + "".join("%s=%s\n" % setting for setting in settings.items()))
    waiter = os.fork()
    if waiter != 0:
        os.waitpid(waiter, 0)
        os.execv("/usr/sbin/vsftpd", ["/usr/sbin/vsftpd", config])
    if os.fork() != 0:
        os._exit(0)  # the server must have no children that are not its own
    while True:
        try:
            socket.create_connection(("127.0.0.1", port)).close()
            break
        except OSError:
            time.sleep(0.01)
    ready(port)
    os._exit(0)


def serve_clear_data(options):
    """TLS from the first byte, but for the data: lets everybody in and refuses PROT."""
    context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
    context.load_cert_chain(options.cert)
    answers = {"USER": "331 password", "PASS": "230 in", "PBSZ": "200 fine", "PROT": "536 no"}
    with socket.create_server(("127.0.0.1", options.port)) as listener:
        ready(listener.getsockname()[1])
        while True:
            try:
                with context.wrap_socket(listener.accept()[0], server_side=True) as client:
                    client.sendall(b"220 here\r\n")
                    for line in client.makefile("r"):
                        answer = answers.get(line[:4].rstrip().upper(), "502 unknown")
                        client.sendall(answer.encode() + b"\r\n")
            except OSError:
                pass


class Mailbox:
    def __init__(self, root):
        self.root = root
        self.count = 0

    def keep(self, ending, data):
        path = os.path.join(self.root, "%d.%s" % (self.count, ending))
        with open(path + "~", "wb") as file:
            file.write(data)
        os.rename(path + "~", path)

    async def handle_RCPT(self, server, session, envelope, address, options):
        if address.startswith("nobody@"):
            return "550 there is no nobody"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        message = email.message_from_bytes(envelope.content, policy=email.policy.default)
        for part in message.iter_attachments():
            self.keep("name", part.get_filename().encode())
            self.keep("attachment", part.get_payload(decode=True))
        self.keep("subject", str(message["subject"]).encode())
        self.keep("envelope", (envelope.mail_from + " " + ",".join(envelope.rcpt_tos)).encode())
        self.keep("eml", envelope.content)
        return "250 kept"


def serve_mail(options):
    import asyncio
    from aiosmtpd.smtp import SMTP, AuthResult

    def login(server, session, envelope, mechanism, data):
        success = data.login == USER.encode() and data.password == PASSWORD.encode()
        return AuthResult(success=success, handled=False)

    context = None
    if options.tls:
        context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        context.load_cert_chain(options.cert)
    mailbox = Mailbox(options.root)

    def session():
        explicit = options.tls == "explicit"
        return SMTP(mailbox, hostname="mail.example.org", authenticator=login, auth_require_tls=explicit, auth_required=True,
                    require_starttls=explicit, tls_context=context if explicit else None)

    async def run():
        implicit = context if options.tls == "implicit" else None
        server = await asyncio.get_running_loop().create_server(session, "127.0.0.1", options.port, ssl=implicit)
        ready(server.sockets[0].getsockname()[1])
        await server.serve_forever()

    asyncio.run(run())


if __name__ == "__main__":
    OPTIONS = arguments()
    logging.disable(logging.CRITICAL)
    warnings.simplefilter("ignore")
    if OPTIONS.service == "mail":
        serve_mail(OPTIONS)
    elif OPTIONS.service == "ftp-clear-data":
        serve_clear_data(OPTIONS)
    elif OPTIONS.tls:
        serve_ftps(OPTIONS)
    else:
        serve_ftp(OPTIONS)
