"""What a host asks for with setLogging: the sent-mail log, and no file of an odd name beside it."""
import stat

import samples

BEGIN, END = b"--BEGIN SENT TOLVANE EMAIL--\n", b"\n--END SENT TOLVANE EMAIL--\n"


def send(host, port, subject):
    host.setSmtpHost("127.0.0.1")
    host.setSmtpPort(port)
    host.setFromAddress(samples.SENDER)
    host.setRecipient(samples.TO)
    host.setSubject(subject)
    host.setBody("<p>x</p>\r\n.\r\n..two\r\n")
    host.setLogo("")
    assert host.szBrisko() == 1, host.error()


def test_the_sent_mail_log_holds_each_message_where_the_host_is(host, receiver, tmp_path):
    host.Initialise()
    send(host, receiver.port, "before logging")
    assert not list(tmp_path.glob("*.log"))
    host.setLogging()
    sent = []
    for name in ("napló ő", "two"):
        folder = tmp_path / name
        folder.mkdir()
        assert host.chdir(host.product.path(folder)) == 1
        for number in (1, 2):
            send(host, receiver.port, f"{name} {number}")
        # The debug log is given a directory's name, so there is no debug log.
        assert [path.name for path in folder.iterdir()] == ["emailsending.log"]
        log = folder / "emailsending.log"
        if not host.product.wine:  # whole messages: for nobody else to read
            assert stat.S_IMODE(log.stat().st_mode) == 0o600
        text = log.read_bytes()
        assert text.startswith(BEGIN) and text.endswith(END)
        sent += [entry.removeprefix(BEGIN) for entry in text.removesuffix(END).split(END)]
    assert [entry.replace(b"\n..", b"\n.").rstrip(b"\r\n") for entry in sent] == [
        message.data.rstrip(b"\r\n") for message in receiver.messages[1:]]
    assert b"\n..\r\n" in sent[0] and b"\n...two" in sent[0]
