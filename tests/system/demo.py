#!/usr/bin/env python3
"""The demo: one message with logo and attachments, sent through the Linux library and through the
Windows DLL under Wine to a mail server on this machine, and what arrived there."""
import pathlib
import shutil
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "fixtures"))
import products  # noqa: E402
import samples  # noqa: E402
import wine  # noqa: E402
from programs import run  # noqa: E402
from receiver import Receiver  # noqa: E402

FOLDER = products.ROOT / "build" / "demo"


def print_tree(part, depth=0):
    indent = "  " * depth
    if part.is_multipart():
        print(f"    {indent}{part.get_content_type()}")
        for child in part.iter_parts():
            print_tree(child, depth + 1)
        return
    content = part.get_payload(decode=True)
    name = part.get_filename() or part.get_param("name")
    notes = [part["Content-Transfer-Encoding"], f"{len(content):,} bytes"]
    notes += [repr(name)] if name else []
    notes += ["Content-ID " + part["Content-ID"]] if part["Content-ID"] else []
    print(f"    {indent}{part.get_content_type()}: {', '.join(notes)}")


def show(received, transcript, path):
    message = received.parsed()
    print(f"  Envelope: {received.sender} -> {', '.join(received.recipients)}")
    for name in ("From", "To", "Cc", "Bcc", "Subject", "Date", "Message-ID"):
        print(f"  {name + ':':<12}{message[name] or '(none)'}")
    print(f"  Parts, {len(received.data):,} bytes in all:")
    print_tree(message)
    print("  The dialogue as the server saw it (first a trial connection, then the message):")
    for line in transcript:
        print(f"    {line}")
    print(f"  The message lies in {path}")


def send(label, product, sample, server):
    print(f"\n== {label}: {product.library.relative_to(products.ROOT)}\n")
    del server.messages[:], server.transcript[:]
    done = run(product, product.program, "--host", "127.0.0.1", "--port", server.port,
               *sample.command_line(product))
    if done.code:
        print(f"emailsend ended with code {done.code}: {done.err}")
        return False
    [received] = server.messages
    path = FOLDER / f"{product.library.stem}.eml"
    path.write_bytes(received.data)
    show(received, server.transcript, path.relative_to(products.ROOT))
    sample.check(received.parsed())
    print("  Subject, addresses, body, logo and both attachments arrived as they were sent.")
    return True


def main():
    shutil.rmtree(FOLDER, ignore_errors=True)
    sample = samples.Sample(FOLDER / "files")
    try:
        with Receiver() as server, wine.WineSession() as session:
            print(f"A mail server listens on 127.0.0.1:{server.port}.")
            good = [send("The Linux library", products.Product("so"), sample, server),
                    send("The 32-bit Windows library under Wine", products.Product("dll", session), sample, server)]
    except wine.WineMissing as missing:
        print(f"The Windows half cannot be shown: {missing}", file=sys.stderr)
        return 1
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
