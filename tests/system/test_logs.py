"""What a host asks for with setLogging: the sent-mail log, and no file of an odd name beside it."""
import stat

import samples

BEGIN, END = b"--BEGIN SENT TOLVANE EMAIL--\n", b"\n--END SENT TOLVANE EMAIL--\n"


def prepare(host, port, subject, body):
    host.setSmtpHost("127.0.0.1")
    host.setSmtpPort(port)
    host.setFromAddress(samples.SENDER)
    host.setRecipient(samples.TO)
    host.setSubject(subject)
    host.setBody(body)
    host.setLogo("")


def entries(path):
    text = path.read_bytes()
    assert text.startswith(BEGIN) and text.endswith(END)
    return [entry.removeprefix(BEGIN) for entry in text.removesuffix(END).split(END)]


def test_sent_mail_log_holds_each_transferred_message(host, receiver, tmp_path):
    folder = tmp_path / "napló ő"
    folder.mkdir()
    assert host.chdir(host.product.path(folder)) == 1
    host.Initialise()
    prepare(host, receiver.port, "before logging", "<p>0</p>")
    assert host.szBrisko() == 1
    assert list(folder.iterdir()) == []
    host.setLogging()
    for number in (1, 2):
        prepare(host, receiver.port, f"logged {number}", f"<p>{number}</p>\r\n.\r\n..two\r\n")
        assert host.szBrisko() == 1
    # The debug log is given a directory's name, so there is no debug log.
    assert [path.name for path in folder.iterdir()] == ["emailsending.log"]
    log = folder / "emailsending.log"
    if not host.product.wine:  # whole messages: for nobody else to read
        assert stat.S_IMODE(log.stat().st_mode) == 0o600
    logged = entries(log)
    sent = [message.data for message in receiver.messages[1:]]
    assert [entry.replace(b"\n..", b"\n.").rstrip(b"\r\n") for entry in logged] == [
        data.rstrip(b"\r\n") for data in sent]
    assert b"\n..\r\n" in logged[0] and b"\n...two" in logged[0]


def test_sent_mail_log_follows_the_current_directory(host, receiver, tmp_path):
    host.Initialise()
    host.setLogging()
    for name in ("one", "two"):
        (tmp_path / name).mkdir()
        host.chdir(host.product.path(tmp_path / name))
        prepare(host, receiver.port, name, "<p>x</p>")
        assert host.szBrisko() == 1
        [entry] = entries(tmp_path / name / "emailsending.log")
        assert b"Subject: " + name.encode() in entry


def test_unwritable_sent_mail_log_does_not_stop_a_send(host, receiver, tmp_path):
    (tmp_path / "emailsending.log").mkdir()  # a directory cannot be opened for appending
    host.chdir(host.product.path(tmp_path))
    host.Initialise()
    host.setLogging()
    prepare(host, receiver.port, "no log", "<p>x</p>")
    assert host.szBrisko() == 1, host.error()
    assert len(receiver.messages) == 1


def test_verbose_logging_adds_to_the_error_text(host):
    texts = []
    for verbose in (False, True):
        host.Initialise()
        if verbose:
            host.setVerboseLogging()
        prepare(host, 1, "refused", "")  # nobody listens on port 1
        assert host.szBrisko() == 0
        texts.append(host.error())
    for text, flag in zip(texts, "01"):
        assert text.startswith("TolvaneLog:\r\n  VerifySmtpConnection") and f"VerboseLogging: {flag}" in text
        assert "Failed." in text and text.rstrip().endswith("--TolvaneLog")
