#!/usr/bin/env python3
"""The demo: one message with logo and attachments, sent through the Linux library and through the
Windows DLL under Wine to a mail server on this machine, and what arrived there."""
import logging
import pathlib
import shutil
import sys
from email.iterators import _structure

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "fixtures"))
from products import ROOT, Product  # noqa: E402
from programs import run  # noqa: E402
from receiver import Receiver  # noqa: E402
from samples import Sample  # noqa: E402
from wine import WineSession  # noqa: E402

FOLDER = ROOT / "build" / "demo"


def send(product, sample):
    print(f"\n== {product.library.relative_to(ROOT)}, the dialogue as the server sees it\n")
    with Receiver() as server:
        done = run(product, product.program, "--host", "127.0.0.1", "--port", server.port,
                   *sample.command_line(product))
    assert done.code == 0, done.err
    [received] = server.messages
    message, path = received.parsed(), FOLDER / f"{product.library.stem}.eml"
    path.write_bytes(received.data)
    print(f"\n  {len(received.data):,} bytes from {received.sender} to {', '.join(received.recipients)}:")
    for name in ("From", "To", "Cc", "Bcc", "Subject", "Date", "Message-ID"):
        print(f"  {name + ':':<12}{message[name] or '(none)'}")
    _structure(message, level=1)
    sample.check(message)
    print("  Subject, addresses, body, logo and both attachments arrived as they were sent.")
    print(f"  The message lies in {path.relative_to(ROOT)}.", flush=True)


def main():
    shutil.rmtree(FOLDER, ignore_errors=True)
    sample = Sample(FOLDER / "files")
    dialogue = logging.StreamHandler(sys.stdout)
    dialogue.addFilter(lambda record: ">>" in record.msg or "<<" in record.msg)
    logging.basicConfig(format="    %(message)s", handlers=[dialogue])
    logging.getLogger("mail.log").setLevel(logging.DEBUG)
    send(Product("so"), sample)
    with WineSession() as session:
        send(Product("dll", session), sample)


if __name__ == "__main__":
    main()
