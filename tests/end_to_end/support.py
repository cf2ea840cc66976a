"""What the end-to-end tests share: real mail servers, a home of the program's own, and another client of the account."""
import imaplib
import json
import os
import pathlib
import pty
import shutil
import ssl
import subprocess
import sys
import tempfile

SERVERS = pathlib.Path(__file__).resolve().parent.parent / "servers"


class Account:
    """One person's account, as the program in a home of its own sees it, and as a plain IMAP dialogue (`imap`) does."""

    def __init__(self, velmo, home, user="ALICE"):
        self.velmo, self.home, self.user = velmo, home, user
        self.own_home = home / f"home-{user.lower()}"
        self.env = dict(line.split("=", 1) for line in (home / "mail/env").read_text().split())
        self.process_env = dict(os.environ, VELMO_HOME=str(self.own_home), SSL_CERT_FILE=self.env["CA_FILE"])
        context = ssl.create_default_context(cafile=self.env["CA_FILE"])
        self.imap = imaplib.IMAP4_SSL("localhost", int(self.env["IMAPS_PORT"]), ssl_context=context)
        self.imap.login(self.env[f"{user}_USER"], self.env[f"{user}_PASSWORD"])

    def try_run(self, *words, text=None):
        given = {"stdin": subprocess.DEVNULL} if text is None else {"input": text}
        return subprocess.run([self.velmo, *words], env=self.process_env, capture_output=True, text=True, timeout=120,
                              **given)

    def run(self, *words, text=None):
        done = self.try_run(*words, text=text)
        if done.returncode:
            sys.exit(f"velmo {' '.join(words)}: exit {done.returncode}: {done.stderr}")
        return done.stdout

    def told(self, *words, text=None):
        """What a command tells with --json."""
        return json.loads(self.run("--json", *words, text=text))

    def on_terminal(self, *words, editor):
        """Runs it on a terminal, with the shell words `editor` for $EDITOR. Gives its exit code, and what was seen."""
        process, terminal = pty.fork()
        if process == 0:
            os.environ.update(self.process_env, EDITOR=editor, TERM="dumb")
            os.environ.pop("VISUAL", None)
            os.execv(self.velmo, [self.velmo, *words])
        seen = b""
        try:
            while chunk := os.read(terminal, 65536):
                seen += chunk
        except OSError:                                    # the other side has closed it
            pass
        os.close(terminal)
        return os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]), seen.decode()

    def add(self):
        user = self.user
        self.run("accounts", "add", "--email", self.env[f"{user}_USER"], "--password-stdin",
                 "--imap", f"localhost:{self.env['IMAPS_PORT']}:tls",
                 "--smtp", f"localhost:{self.env['SMTP_PORT']}:starttls", text=self.env[f"{user}_PASSWORD"] + "\n")

    def fill(self, mailbox, count, seed):
        maildir = pathlib.Path(self.env["ALICE_MAILDIR"])
        if mailbox != "INBOX":
            self.imap.create(f'"{mailbox}"')
            maildir = maildir / ("." + mailbox.replace("/", "."))
        subprocess.run([SERVERS / "fill", maildir, str(count), str(seed)], check=True)


def with_servers(test):
    """Ends the process with what `test(home)` gives, while the servers run in `home`; with 77 where they can't."""
    if os.geteuid() != 0 or not shutil.which("dovecot", path="/usr/sbin:/usr/bin"):
        print("real mail servers need root to start; run: sudo ./dev test")
        sys.exit(77)
    home = pathlib.Path(tempfile.mkdtemp(prefix="velmo-test-"))
    os.chmod(home, 0o711)
    try:
        subprocess.run([SERVERS / "start", home / "mail"], check=True)
        code = test(home)
    finally:
        subprocess.run([SERVERS / "stop", home / "mail"], check=False)
        shutil.rmtree(home, ignore_errors=True)
    sys.exit(code)
