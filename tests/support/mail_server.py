"""A real mail server on loopback, which can be told to refuse, to want TLS or a login; and one that
hangs."""
import email
import email.policy
import socket
import ssl
import subprocess
import threading
from contextlib import contextmanager

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult

from waiting import SECONDS

MAIL_PORT = 2525


class Certificate:
    """A key and a certificate of its own for these names, which vouches for itself."""

    def __init__(self, folder, names="IP:127.0.0.1"):
        folder.mkdir()
        self.key, self.file = folder / "key.pem", folder / "certificate.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj",
                        "/CN=test", "-addext", "subjectAltName=" + names, "-keyout", self.key,
                        "-out", self.file], check=True, capture_output=True)

    def context(self):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.file, self.key)
        return context


class MailServer:
    """Keeps the mails that it takes, in `mails`; `refusals` has an answer for each recipient that
    is refused."""

    def __init__(self, refusals=None, users=None, **options):
        self.mails, self.logins = [], []
        self.refusals, self.users = refusals or {}, users
        if users is not None:
            options.update(authenticator=self.log_in, auth_required=True)
        self.controller = Controller(self, hostname="127.0.0.1", port=MAIL_PORT,
                                     ready_timeout=SECONDS, **options)

    def log_in(self, _server, session, _envelope, _mechanism, data):
        name, password = data.login.decode(), data.password.decode()
        self.logins.append((name, password, session.ssl is not None))
        # Not handled: the server itself answers a wrong one.
        return AuthResult(success=self.users.get(name) == password, handled=False)

    async def handle_RCPT(self, _server, _session, envelope, address, _options):
        if address in self.refusals:
            return self.refusals[address]
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, _server, session, envelope):
        mail = email.message_from_bytes(envelope.content, policy=email.policy.default)
        mail.envelope_from, mail.envelope_to = envelope.mail_from, envelope.rcpt_tos
        mail.with_tls = session.ssl is not None
        self.mails.append(mail)
        return "250 OK"

    @property
    def ids(self):
        """Message-IDs in the order in which mails came."""
        return [mail["Message-ID"] for mail in self.mails]

    def __enter__(self):
        self.controller.start()
        return self

    def __exit__(self, *unused):
        self.controller.stop()


@contextmanager
def scripted_mail_server(answers, port=MAIL_PORT):
    """A server that says a greeting, then an answer to each line, or to the mail behind a 354, and
    nothing more when it has none. Gives the list of the lines that it gets."""
    got, held = [], []
    listener = socket.create_server(("127.0.0.1", port))

    def serve():
        while True:
            try:
                connection, _ = listener.accept()
            except OSError:
                return
            held.append(connection)
            threading.Thread(target=talk, args=(connection,), daemon=True).start()

    def talk(connection):
        lines = connection.makefile("rb")
        try:
            for answer in answers:
                connection.sendall(answer.encode() + b"\r\n")
                in_mail = answer.startswith("354")
                for line in lines:
                    got.append(line.decode().rstrip("\r\n"))
                    if not in_mail or line == b".\r\n":
                        break
            for line in lines:
                got.append(line.decode().rstrip("\r\n"))
        except OSError:
            return

    threading.Thread(target=serve, daemon=True).start()
    try:
        yield got
    finally:
        for open_one in (listener, *held):
            # A shutdown ends the waits of other threads; closing alone does not.
            try:
                open_one.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            open_one.close()
