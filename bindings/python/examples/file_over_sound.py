"""A file over sound that loses every fourth frame: file_over_sound.py FILE FOLDER, which saves it there again."""

import sys

import kosc
from kosc.transfer import Collector, Sender


def main(path: str, folder: str) -> int:
    sender, collector = Sender.from_file(path), Collector()
    with kosc.Receiver(channels=1, band="wide") as receiver:
        for count, block in enumerate(sender.sound(rounds=2, band="wide")):  # a real sender plays each
            if count % 4 == 1:
                block[:] = 0  # somebody coughs
            for message in receiver.push(block):
                event = collector.take(message)
                print(f"{event.held} of {event.needed} messages after {message.time:.2f} s")
                if event.payload is not None:
                    print(f"saved as {event.payload.save(folder)}")
                    return 0
    return 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
