# The prompt of `./dev python`: the Tab key completes names. It leaves no name of its own behind.
try:
    __import__("readline").set_completer(__import__("Kel").completer())
    __import__("readline").parse_and_bind("tab: complete")
except ImportError:
    pass  # a Python without readline
