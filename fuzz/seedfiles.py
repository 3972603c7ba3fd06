"""What the seed-corpus scripts of fuzz/ share: interface indexes, and writing a corpus."""
import os
import sys


def gi(slot, port):
    return 10 << 24 | slot << 16 | port << 8


def te(slot, port):
    return 11 << 24 | slot << 16 | port << 8


def po(lag):
    return 22 << 24 | lag


def vl(vlan):
    return 24 << 24 | vlan


def corpus_dir(target):
    """The directory named on the command line, else fuzz/corpus/TARGET."""
    if len(sys.argv) > 1:
        return sys.argv[1]
    return os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus", target)


def write_seeds(directory, seeds):
    """Writes every seed (name: bytes) as a file of the directory, made when missing."""
    os.makedirs(directory, exist_ok=True)
    for name, data in seeds.items():
        with open(os.path.join(directory, name), "wb") as f:
            f.write(data)
